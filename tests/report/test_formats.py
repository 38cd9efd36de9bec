"""What other programs read: CSV, folded stacks, pprof, SQLite with the queries of the documents."""

import csv
import gzip
import io
import os
import pty
import re
import sqlite3
import subprocess
import unittest

from log_builder import ALLOCATED, FREE, MALLOC, MMAP, MUNMAP, RELEASED
from support import SOURCE, TOOL, ReportTest


def varint(message, at):
    """The number at `at` and the place behind it."""
    value = shift = 0
    while True:
        value |= (message[at] & 0x7F) << shift
        shift, at = shift + 7, at + 1
        if message[at - 1] < 0x80:
            return value, at


def fields_of(message):
    """The fields of a protocol buffer message as [(number, value)]: numbers, or bytes for what has a length."""
    fields, at = [], 0
    while at < len(message):
        tag, at = varint(message, at)
        value, at = varint(message, at)
        if tag & 7 == 2:
            at += value
            fields.append((tag >> 3, message[at - value:at]))
        else:
            fields.append((tag >> 3, value))
    return fields


def packed(message):
    numbers, at = [], 0
    while at < len(message):
        value, at = varint(message, at)
        numbers.append(value)
    return numbers


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
        profile = fields_of(gzip.decompress(self.report("leaks", self.sample(), "--format", "pprof")[0]))
        of = lambda number: [value for key, value in profile if key == number]
        strings = [text.decode() for text in of(6)]
        self.assertEqual(strings[0], "")
        types = [tuple(strings[value] for _, value in fields_of(kind)) for kind in of(1)]
        self.assertEqual(types, [("inuse_objects", "count"), ("inuse_space", "bytes")])
        functions = {dict(fields_of(f))[1]: strings[dict(fields_of(f))[2]] for f in of(5)}
        locations = {}
        for location in map(fields_of, of(4)):
            lines = [dict(fields_of(value))[1] for key, value in location if key == 4]
            locations[dict(location)[1]] = (dict(location)[2], dict(location)[3], [functions[line] for line in lines])
        samples = [dict(fields_of(sample)) for sample in of(2)]
        self.assertEqual([packed(sample[2]) for sample in samples], [[2, 400], [1, 50]])
        stacks = [[locations[place] for place in packed(sample[1])] for sample in samples]
        name = 'a,"b"'
        self.assertEqual(stacks[0], [(1, 0x8000, [f"{name}+0x0"]), (1, 0x9000, [f"{name}+0x1000"])])
        self.assertEqual(stacks[1][1], (0, 0xA000, ["0x0000a000"]))
        mapping = dict(fields_of(of(3)[0]))
        self.assertEqual((mapping[2], mapping[3], strings[mapping[5]]), (0x8000, 0xA000, '/bin/a,"b"'))
        self.assertEqual(of(9), [70 * 10**9])

    def test_text_fits_a_terminal_and_is_coloured_only_there(self):
        path = self.sample()
        self.assertNotIn("\033", self.text(path))
        leader, follower = pty.openpty()
        child = subprocess.Popen([TOOL, "report", str(path)], stdout=follower, env={**os.environ, "NO_COLOR": ""})
        os.close(follower)
        shown = b""
        try:
            while part := os.read(leader, 4096):
                shown += part
        except OSError:
            pass  # the terminal is closed with its last writer
        child.wait()
        os.close(leader)
        plain = re.sub(r"\033\[[0-9;]*m", "", shown.decode())
        self.assertIn("\033[", self.text(path, "--color", "always"))
        self.assertLessEqual(max(len(line) for line in plain.splitlines() if "/" not in line), 80)


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
