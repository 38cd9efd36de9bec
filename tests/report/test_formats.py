# SPDX-License-Identifier: Apache-2.0
"""What other programs read: CSV, folded stacks, pprof, SQLite with the queries of the documents."""

import csv
import io
import os
import pty
import re
import sqlite3
import subprocess
import unittest

from log_builder import ALLOCATED, FREE, MALLOC, MMAP, MUNMAP, RELEASED
from pprof import Profile
from support import PROGRAMS, SOURCE, TOOL, ReportTest


def on_terminal(stream, path, **environment):
    """What a summary of `path` writes to `stream`, a terminal; what goes elsewhere is dropped."""
    leader, follower = pty.openpty()
    streams = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, stream: follower}
    child = subprocess.Popen([TOOL, "report", str(path)], **streams, env={**os.environ, **environment})
    os.close(follower)
    shown = b""
    try:
        while part := os.read(leader, 4096):
            shown += part
    except OSError:
        pass  # the terminal is closed with its last writer
    child.wait()
    os.close(leader)
    return shown.decode()


class Formats(ReportTest):
    def sample(self):
        record = self.layout.record
        return self.write(self.layout.log([
            record(MALLOC, ALLOCATED, 0x1000, 100, [0x8001, 0x9001], time=50, seq=1), record(MALLOC, ALLOCATED, 0x2000, 300, [0x8001, 0x9001], time=40, seq=2),
            record(MALLOC, ALLOCATED, 0x3000, 50, [0x8001, 0xA001], time=60, seq=3), record(MALLOC, ALLOCATED, 0x4000, 7, [], seq=4),
            record(FREE, RELEASED, 0x4000, 7, [0xB001], seq=5)], maps="00008000-0000a000 r-xp 00000000 00:00 1 /bin/a,\"b\"\n",
            statistics=self.layout.statistics({MALLOC: 4, FREE: 1}, totals={MALLOC: 457, FREE: 7}, held=(450, 0, 457, 0)), time=70))

    def test_csv(self):
        rows = list(csv.DictReader(io.StringIO(self.text("leaks", self.sample(), "--format", "csv"))))
        self.assertEqual([(row["bytes"], row["count"], row["site"]) for row in rows],
                         [("400", "2", 'a,"b"+0x0'), ("50", "1", 'a,"b"+0x0')])

    def test_folded(self):
        for verb in (["leaks"], []):
            self.assertEqual(self.text(*verb, self.sample(), "--format", "folded"), 'a,"b"+0x1000;a,"b"+0x0 400\n0x0000a000;a,"b"+0x0 50\n')

    def test_pprof(self):
        profile = Profile(self.report("leaks", self.sample(), "--format", "pprof")[0])
        self.assertEqual(profile.strings[0], "")
        in_use = [("inuse_objects", "count"), ("inuse_space", "bytes")]
        self.assertEqual(profile.types, [("alloc_objects", "count"), ("alloc_space", "bytes"), *in_use])
        profile.samples.sort(key=lambda sample: -sample.values[1])
        self.assertEqual([(sample.values, sample.thread) for sample in profile.samples],
                         [([2, 400, 2, 400], 1), ([1, 50, 1, 50], 1), ([1, 7, 0, 0], 1)])
        snapshot = self.write(self.layout.log([self.layout.record(MALLOC, ALLOCATED, 0x1000 * tid, 100, [0x8001], tid=tid) for tid in (5, 6)], count=2))
        snapshot = Profile(self.report("leaks", snapshot, "--format", "pprof")[0])
        self.assertEqual((snapshot.types, [(sample.values, sample.thread) for sample in snapshot.samples]), (in_use, [([1, 100], 5), ([1, 100], 6)]))
        name = 'a,"b"'
        first, second = [sample.stack for sample in profile.samples if sample.count]
        self.assertEqual(first, [(1, 0x8000, [f"{name}+0x0"]), (1, 0x9000, [f"{name}+0x1000"])])
        self.assertEqual(second[1], (0, 0xA000, ["0x0000a000"]))
        self.assertEqual(profile.mappings, [(0x8000, 0xA000, '/bin/a,"b"', "")])
        self.assertEqual(profile.time, [70 * 10**9])

    def test_text_fits_a_terminal_and_is_coloured_only_there(self):
        path = self.sample()
        self.assertNotIn("\033", self.text(path))
        shown = on_terminal("stdout", path, NO_COLOR="")
        plain = re.sub(r"\033\[[0-9;]*m", "", shown)
        self.assertIn("\033[", self.text(path, "--color", "always"))
        self.assertLessEqual(max(len(line) for line in plain.splitlines() if "/" not in line), 80)

    def test_a_bar_shows_what_takes_long_on_a_terminal_only(self):
        record = self.layout.record(MALLOC, ALLOCATED, 0x1000, 1)
        path = self.write(self.layout.log([record] * 3000, time=9))
        slow = {"LD_PRELOAD": str(PROGRAMS / "fast_clock.so")}
        bars = [line for line in on_terminal("stderr", path, **slow).split("\r") if "[" in line and "%" in line]
        self.assertRegex(bars[0], rf"^{re.escape(str(path))} \[#+\.+\]  *\d+%\033\[K$")
        shares = [int(re.search(r"(\d+)%", bar)[1]) for bar in bars]
        self.assertEqual((shares, shares[-1]), (sorted(shares), 100))
        self.assertTrue(on_terminal("stderr", path, **slow).split("%")[-1].startswith("\033[K\r\033[K"))  # and is wiped out
        self.assertNotIn("%", on_terminal("stderr", path))
        self.assertEqual(self.report(path)[1].count("%"), 0)


class Sqlite(ReportTest):
    def fleet(self):
        record, layout = self.layout.record, self.layout
        maps = "00008000-0000a000 r-xp 00000000 00:00 1 /bin/sample\n"
        logs = []
        for pid, extra in ((1, 10), (2, 20)):
            records = [record(MALLOC, ALLOCATED, 0x1000 * (i + 1), extra, [0x8001, 0x9001 + 4 * i], time=pid, seq=i + 1) for i in range(3)]
            records += [record(FREE, RELEASED, 0x1000, extra, [0x8101], seq=4), record(MMAP, ALLOCATED, 0x70000, 4096, [0x8201]),
                        record(MUNMAP, RELEASED, 0x70000, 4096)]
            statistics = layout.statistics({MALLOC: 3, FREE: 1}, held=(2 * extra, 0, 3 * extra, 0))
            logs.append(self.write(layout.log(records, maps=maps, statistics=statistics, pid=pid, time=10 + pid,
                                              threads=[layout.thread(pid, "main", {MALLOC: 3}, {MALLOC: 3 * extra})]), f"s_{pid}_quarlAll.log"))
        shots = [[record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 64, [0x8001]) for i in range(n)] for n in (1, 3)]
        logs.append(self.write(layout.chain([(20, 64, shots[0], []), (30, 192, shots[1], [])], maps), "s_3_autosnap.log"))
        database = self.folder / "fleet.db"
        self.report("--format", "sqlite", "-o", database, *logs)
        return database, logs

    def test_logs_become_rows_once(self):
        database, logs = self.fleet()
        notes = self.report("--format", "sqlite", "-o", database, logs[0])[1]
        self.assertIn("is in the database already", notes)
        with sqlite3.connect(database) as connection:
            one = lambda sql: connection.execute(sql).fetchone()[0]
            self.assertEqual([one(f"SELECT count(*) FROM {table}") for table in ("processes", "snapshots", "records", "statistics")],
                             [3, 4, 16, 48])
            self.assertEqual(one("SELECT sum(size) FROM records WHERE held AND snapshot_id IN (SELECT id FROM snapshots WHERE process_id < 3)"), 60)
            self.assertEqual(connection.execute("PRAGMA foreign_key_check").fetchall(), [])
            # The same code in another log is the same frame, and the same trace.
            self.assertEqual(one("SELECT count(*) FROM frames"), one("SELECT count(DISTINCT module_id || '+' || offset) FROM frames"))

    def test_the_documented_queries_run_in_its_own_shell(self):
        database, _ = self.fleet()
        page = (SOURCE / "docs/report.md").read_text()
        queries = re.findall(r"```sql\n(SELECT.*?)```", page, re.S)
        self.assertEqual(len(queries), 5)
        answers = []
        for query in queries:
            done = subprocess.run(["sqlite3", "-csv", "-header", str(database)], input=query, capture_output=True, text=True, check=True)
            self.assertEqual(done.stderr, "")
            answers.append(list(csv.DictReader(io.StringIO(done.stdout))))
        self.assertTrue(all(answers), answers)
        self.assertEqual((answers[0][0]["bytes"], answers[0][0]["processes"]), ("252", "3"))


if __name__ == "__main__":
    unittest.main()
