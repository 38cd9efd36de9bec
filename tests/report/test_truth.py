# SPDX-License-Identifier: Apache-2.0
"""Every figure of the report against sums that truth.py makes from the same file: logs of real programs, and of one that
does all that makes sums hard, in every kind of log and every format."""

import csv
import io
import signal
import sqlite3
import sys
import unittest
from collections import Counter

import truth
from pprof import Profile
from support import BUILD, PROGRAMS, SOURCE, ReportTest, the_log

sys.path.insert(0, str(SOURCE / "scripts"))
import sysroot

RECORDS = {"OUTPUT_LOG": 1, "PROF": 1, "THREAD": 1}
CHAIN = {"TIMER_SIG": "SIG40", "PROF": 1, "THREAD": 1, "HEAD_TIME": 2, "TIME_INTERVAL": 1, "SNAP_INTERVAL": 1, "SNAP_DETAIL": 1}

WORKS = {
    "jq": ("[range(3000) | {a: ., b: (tostring * 5)}] | map(.b | length) | add", "-n"),
    "sqlite3": (":memory:", "create table t(a, b); with recursive n(i) as (select 1 union all select i + 1 from n where i < 4000) "
                "insert into t select i, hex(randomblob(i % 300)) from n; create index x on t(b); select count(distinct b) from t;"),
    "perl": ("-e", "my %h; $h{$_ % 700} .= 'x' x ($_ % 90) for 1..20000; my @s = sort { length $h{$a} <=> length $h{$b} } keys %h; "
             "my $t = 'y' x 3000000; undef $t; print scalar @s, qq{\\n}"),
    "gawk": ("BEGIN { for (i = 0; i < 8000; ++i) { a[i % 500] = a[i % 500] i; s = s i }; print length(s), length(a) }",),
    "python3.11": ("-c", "import threading\ndef work(k):\n  kept = [bytearray(n * 997 % 400000) for n in range(60 * k)]\n"
                   "  text = ' '.join(map(str, range(20000 * k)))\nfor t in [threading.Thread(target=work, args=(k,)) for k in (1, 2, 3)]:\n  t.start()\n"),
}


def without_files(path):
    """A copy whose modules are on no desk, so that sites are addresses and nothing else."""
    data, start = bytearray(path.read_bytes()), 0
    while True:
        log = truth.Log(path, start)
        begin = start + 88
        maps = log.maps.encode()
        data[begin:begin + len(maps)] = b"\n".join(line.replace(b" /", b" ~", 1) for line in maps.split(b"\n"))
        if not log.next:
            break
        start = log.next
    copy = path.with_name("x" + path.name)
    copy.write_bytes(data)
    return copy


class Truth(ReportTest):
    def report(self, *arguments, **more):
        """With what the libraries keep by design, of which test_kept.py knows."""
        arguments = list(map(str, arguments))
        told = arguments[0] in ("leaks", "diff") or "/" in arguments[0]
        return super().report(*arguments, *["--no-default-suppressions"] * told, **more)

    def run_program(self, program, *arguments, status=0, **items):
        library = BUILD / "i686/libquarl.so"
        if not library.exists():
            raise unittest.SkipTest("i686 is not built")
        config = self.folder / "quarlcfg.ini"
        config.write_text("".join(f"QUARL_{key}={value}\n" for key, value in {"ALL": 1, "MEM_HEAD": 1, **items}.items()))
        variables = {"QUARL_CFG_FILE": str(config), "QUARL_CONTRACT": "libc", "QUARL_LOG_DIR": str(self.folder),
                     "PYTHONHOME": str(sysroot.sysroot("i686") / "usr"), "PYTHONMALLOC": "malloc", "PERL5LIB": ""}
        done = sysroot.run("i686", program, *arguments, preload=[library], environment=variables, cwd=self.folder, timeout=120)
        self.assertEqual(done.returncode, status, done.stderr)

    def run_work(self, name, **items):
        program = sysroot.debian_program("i686", name)
        if not program.exists():
            raise unittest.SkipTest("scripts/fetch-programs has not run")
        self.run_program(program, *WORKS[name], **items)

    def leaks(self, path, entries, *options):
        """What is held, in every format that says so, by site where it has sites."""
        size, count = sum(entry.size for entry in entries), len(entries)
        document = self.json("leaks", path, *options)
        self.assertEqual(document["unfreed"], {"bytes": size, "count": count})
        by_size = self.json("leaks", "--by", "size", path)["sites"]
        self.assertEqual({int(site["name"].split()[0]): (site["bytes"], site["count"]) for site in by_size}, truth.by(entries, lambda e: e.size))
        by_thread = self.json("leaks", "--by", "thread", path)["sites"]
        named = lambda entry: str(entry.tid) if entry.tid else "(thread not recorded)"
        self.assertEqual({site["name"]: (site["bytes"], site["count"]) for site in by_thread}, truth.by(entries, named))
        rows = list(csv.DictReader(io.StringIO(self.text("leaks", path, "--format", "csv"))))
        self.assertEqual((sum(int(row["bytes"]) for row in rows), sum(int(row["count"]) for row in rows)), (size, count))
        folded = self.text("leaks", path, "--format", "folded").splitlines()
        self.assertEqual(sum(int(line.rsplit(" ", 1)[1]) for line in folded), size)
        samples = Profile(self.report("leaks", path, "--format", "pprof")[0]).samples
        self.assertEqual((sum(sample.bytes for sample in samples), sum(sample.count for sample in samples)), (size, count))
        self.assertRegex(self.text("leaks", path), rf"^{size:,} bytes? in {count:,} blocks? unfreed\n")

    def sites(self, path, entries):
        """By call trace, where no two traces give the same text."""
        found = Counter()
        for site in self.json("leaks", path)["sites"]:
            found[tuple(frame["address"] + 1 for frame in site["frames"])] += site["bytes"]
        bare = {trace: 0 for trace in found}
        for entry in entries:
            matching = next((trace for skip in range(len(entry.trace) + 1) if (trace := entry.trace[skip:]) in bare), None)
            self.assertIsNotNone(matching, entry)
            bare[matching] += entry.size
        self.assertEqual(bare, dict(found))

    def histogram(self, document, entries):
        self.assertEqual([[level["count"], level["bytes"]] for level in document["histogram"]], truth.histogram(entries))

    def events(self, path, records):
        rows = csv.DictReader(io.StringIO(self.text("events", path, "--format", "csv")))
        self.assertEqual([(int(row["sequence"]), int(row["thread"]), int(row["size"]), int(row["address"])) for row in rows],
                         [(record.seq, record.tid, record.size, record.address) for record in records])

    def database(self, path, *expected):
        """Of each snapshot: bytes and peak, and what is held."""
        name = path.with_suffix(".db")
        self.report("--format", "sqlite", "-o", name, path)
        with sqlite3.connect(name) as database:
            rows = database.execute("SELECT s.bytes, s.peak, sum(r.size), count(r.id) FROM snapshots s LEFT JOIN records r "
                                    "ON r.snapshot_id = s.id AND r.held = 1 GROUP BY s.id ORDER BY s.number").fetchall()
        database.close()
        self.assertEqual(rows, list(expected))

    def record_log(self, path, complete=True):
        """A record log; `complete`: its process wrote it at exit and was no forked child."""
        log = truth.Log(path)
        sums = truth.Replay(log)
        document = self.json(path)
        self.assertEqual(document["recorded"], {"bytes": sums.bytes, "peak": sums.peak, "file_bytes": sums.file_bytes,
                                                "file_peak": sums.file_peak, "count": sums.count})
        self.assertIn(f"Held         {sums.bytes:,} bytes, at most {sums.peak:,}\n", self.text(path))
        self.assertIs(document["log"]["whole"], complete, document["log"]["notes"])
        self.histogram(document, sums.entries)
        self.leaks(path, sums.entries)
        self.sites(without_files(path), sums.entries)
        self.events(path, log.records)
        held = sum(entry.size for entry in sums.entries)
        self.database(path, (sums.bytes, sums.peak, held or None, sums.count))
        points = self.json("timeline", path)["points"]
        self.assertEqual((max(point["peak"] for point in points), points[-1]["bytes"]), (sums.peak, sums.bytes))
        if complete:
            self.operations(path, log, sums, document)
            self.threads(path, sums)
        return sums

    def operations(self, path, log, sums, document):
        told = {row["operation"]: (row["calls"], row["failed"], row["bytes"]) for row in document["operations"]}
        mine = {truth.NAMES[code]: (sums.calls[code], sums.failed[code], sums.totals[code]) for code in range(12)}
        for name, row in told.items():
            self.assertEqual(row, mine[name], name)
        rows = csv.DictReader(io.StringIO(self.text(path, "--format", "csv")))
        self.assertEqual({row["operation"]: (int(row["calls"]), int(row["failed"]), int(row["bytes"])) for row in rows}, told)

    def threads(self, path, sums):
        columns = {"allocations": "allocations", "releases": "releases", "failures": "failures", "allocated": "bytes_allocated",
                   "released": "bytes_released"}
        told = self.json("threads", path)
        for row in told["threads"]:
            mine = sums.threads[row["tid"]]
            self.assertEqual({key: row[name] for key, name in columns.items()}, {key: mine[key] for key in columns}, told["source"])
            net = mine["allocated"] - mine["released"]
            by_thread = sum(entry.size for entry in sums.entries if entry.tid == row["tid"] and not entry.file)
            self.assertEqual(row["bytes_held"], net - mine["file"] if told["source"] == "thread table" else by_thread)
            self.assertTrue(row["peak"] is None or row["peak"] < 1 << 31)
        rows = list(csv.DictReader(io.StringIO(self.text("threads", path, "--format", "csv"))))
        self.assertEqual([int(row["bytes_held"]) for row in rows], [row["bytes_held"] for row in told["threads"]])
        return told

    def snapshot_log(self, path):
        log = truth.Log(path)
        entries = truth.held_in_snapshot(log)
        self.leaks(path, entries)
        self.sites(without_files(path), entries)
        document = self.json(path)
        self.histogram(document, entries)
        self.assertEqual(document["recorded"]["bytes"], sum(entry.size for entry in entries if not entry.file))
        return entries

    def test_real_programs(self):
        for name in WORKS:
            for item in (RECORDS, {}):
                with self.subTest(name, **item):
                    for old in self.folder.glob("*quarl*"):
                        old.unlink()
                    self.run_work(name, **item)
                    if item:
                        self.record_log(the_log(self.folder, "_quarlAll.log"))
                    else:
                        self.snapshot_log(the_log(self.folder, "_quarl.log"))

    def of_shapes(self, *arguments, status=0, **items):
        self.run_program(PROGRAMS / "shapes_i686", *map(str, arguments), status=status, **items)
        ending = "_quarlAll.log" if "OUTPUT_LOG" in items else "_quarl.log"
        logs = sorted(self.folder.glob(f"shapes*{ending}"), key=lambda path: truth.Log(path).pid)
        self.assertEqual(len(logs), 2)
        return logs  # of the parent and of the child

    def test_all_that_is_hard(self):
        parent, child = self.of_shapes(300, **RECORDS)
        sums = self.record_log(parent)
        self.assertGreater(sums.restored, 0)
        self.assertGreater(sums.calls[truth.CHUNK_MAP], 50)
        self.record_log(child, complete=False)

    def test_counted_from_records_alone(self):
        parent, _ = self.of_shapes(100, OUTPUT_LOG=1, PROF=0)
        sums = self.record_log(parent)
        self.assertEqual(self.threads(parent, sums)["source"], "records")

    def test_snapshots(self):
        for path in self.of_shapes(300, MMAP=1):
            self.snapshot_log(path)

    def test_automatic_snapshots(self):
        """Each by itself, and what changed from the first to the last."""
        program = "growing_i686"
        self.run_program(PROGRAMS / program, f"{self.folder}/{program}_%d_quarl_autosnap.log", 3, **CHAIN)
        path, snapshots, start = the_log(self.folder, "_autosnap.log"), [], 0
        while True:
            count = truth.Log(path, start).count
            snapshots.append(truth.Log(path, start, count))
            start = snapshots[-1].next
            if not start:
                break
        self.assertGreater(len(snapshots), 2)
        held = [truth.held_in_snapshot(snapshot) for snapshot in snapshots]
        size = lambda entries: sum(entry.size for entry in entries)
        for snapshot, entries in zip(snapshots, held):
            self.leaks(f"{path}@{snapshot.number}", entries)
        self.database(path, *[(snapshot.held, snapshot.peak, size(entries), len(entries)) for snapshot, entries in zip(snapshots, held)])
        points = self.json("timeline", path)["points"]
        self.assertEqual([(p["snapshot"], p["bytes"], p["count"]) for p in points], [(s.number, s.held, len(e)) for s, e in zip(snapshots, held)])
        copy = without_files(path)
        self.difference(f"{copy}@1", copy, held[0], held[-1])

    def difference(self, earlier, later, before, after):
        changes = self.json("diff", earlier, later)["changes"]
        of = lambda change: tuple(frame["address"] + 1 for frame in change["frames"])
        traces = {of(change) for change in changes}
        sums = {trace: [[0, 0], [0, 0]] for trace in traces}
        rest = [Counter(), Counter()]  # of traces that did not change
        for side, entries in enumerate((before, after)):
            for entry in entries:
                trace = next((t for skip in range(len(entry.trace) + 1) if (t := entry.trace[skip:]) in traces), None)
                if trace is None:
                    rest[side][entry.trace] += entry.size
                else:
                    sums[trace][side][0] += entry.size
                    sums[trace][side][1] += 1
        self.assertEqual(*rest)
        self.assertEqual({of(change): [[change[side]["bytes"], change[side]["count"]] for side in ("before", "after")] for change in changes}, sums)
        folded = [line.rsplit(" ", 2)[1:] for line in self.text("diff", earlier, later, "--format", "folded").splitlines()]
        self.assertEqual(sorted((int(a), int(b)) for a, b in folded), sorted((a[0], b[0]) for a, b in sums.values()))
        rows = csv.DictReader(io.StringIO(self.text("diff", earlier, later, "--format", "csv")))
        self.assertEqual(sum(int(row["bytes"]) for row in rows), sum(e.size for e in after) - sum(e.size for e in before))

    def test_what_changed_between_two_processes(self):
        small = without_files(self.of_shapes(40)[0])
        keep = small.rename(small.with_name("small_quarl.log"))
        for old in self.folder.glob("*shapes*"):
            old.unlink()
        large = self.of_shapes(250)[0]
        before, after = truth.held_in_snapshot(truth.Log(keep)), truth.held_in_snapshot(truth.Log(large))
        rows = csv.DictReader(io.StringIO(self.text("diff", keep, large, "--by", "thread", "--format", "csv")))
        told = {row["site"]: (int(row["bytes_before"]), int(row["bytes_after"]), int(row["count_before"]), int(row["count_after"])) for row in rows}
        sides = [truth.by(entries, lambda entry: str(entry.tid)) for entries in (before, after)]
        nothing = (0, 0)
        self.assertEqual(told, {tid: tuple(sides[side].get(tid, nothing)[part] for part in (0, 1) for side in (0, 1)) for tid in {*sides[0], *sides[1]}})

    def test_killed_after_a_dump(self):
        parent, _ = self.of_shapes(200, "killed", status=-signal.SIGKILL, **RECORDS)
        sums = self.record_log(parent, complete=False)
        document = self.json(parent)
        self.assertIsNone(document["held"])
        self.operations(parent, None, sums, document)
        self.assertEqual(self.threads(parent, sums)["source"], "records")


if __name__ == "__main__":
    unittest.main()
