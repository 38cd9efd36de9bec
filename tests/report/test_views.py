# SPDX-License-Identifier: Apache-2.0
"""What was live at a moment, what comes and goes, what grows: each figure against sums made here from the raw records."""

import random
import tempfile
import unittest
from pathlib import Path

import raw_log
from log_builder import (ALLOCATED, FAILED, FREE, MALLOC, MMAP, MUNMAP, REALLOC, REALLOC_RELEASE, RELEASED,
                         SLOP_HEAD, SLOP_TAIL)
from support import ReportTest, run_checked, the_log

ITEMS = {"ALL": 1, "MEM_HEAD": 1, "PROF": 1, "THREAD": 1, "HEAD_TID": 1, "HEAD_TIME": 2, "MMAP": 1, "OUTPUT_LOG": 1}


def shown(document):
    """{thread: (bytes, count)} of an answer by thread."""
    return {int(site["name"]): (site["bytes"], site["count"]) for site in document["sites"]}


class Views(ReportTest):
    def made_up(self, seed):
        """Threads that allocate, release each other's blocks, resize (sometimes in vain), map, and ask for large blocks."""
        chance, record = random.Random(seed), self.layout.record
        records, live, mapped, number = [], {}, {}, 0

        def add(*what, **more):
            nonlocal number
            number += 1
            records.append(record(*what, time=1000 + number // 50, seq=number, **more))

        for step in range(3000):
            tid, trace, size = chance.randrange(1, 5), [0x8001 + 16 * chance.randrange(20)], chance.randrange(1, 3000)
            what = chance.random()
            if what < 0.5 or not live:
                address = 0x100000 + 64 * chance.randrange(40000)
                if address not in live:
                    add(MALLOC, ALLOCATED, address, size, trace, tid=tid)
                    live[address] = size, trace, tid, number, records[-1]
            elif what < 0.8:
                address = chance.choice([*live, *[next(reversed(live))] * len(live)])
                add(FREE, RELEASED, address, live.pop(address)[0], trace, tid=tid)
            elif what < 0.9:
                address = next(reversed(live))
                old_size, *_, old = live[address]
                add(REALLOC_RELEASE, RELEASED, address, old_size, trace, tid=tid)
                if chance.random() < 0.3:
                    records.append(old)
                    add(REALLOC, FAILED, 0, 1 << 30, trace, tid=tid)
                else:
                    add(REALLOC, ALLOCATED, address, size, trace, tid=tid)
                    live[address] = size, trace, tid, number, records[-1]
            elif what < 0.95:
                start = 0x60000000 + 0x1000000 * len(mapped)
                mapped[start] = 300000
                add(MMAP, ALLOCATED, start, 303104, trace, tid=tid)
                add(MALLOC, ALLOCATED, start + 64, 300000, trace, tid=tid)
                if chance.random() < 0.7:
                    add(FREE, RELEASED, start + 64, 300000, trace, tid=tid)
                    add(MUNMAP, RELEASED, start, 303104, trace, tid=tid)
            else:
                start = 0x20000000 + 0x10000 * step
                add(MMAP, ALLOCATED, start, 8192, trace, tid=tid)
                if chance.random() < 0.5:
                    add(MUNMAP, RELEASED, start, 8192, trace, tid=tid)
        return self.write(self.layout.log(records, time=2000), f"made_{seed}_quarlAll.log")

    def real(self):
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        run_checked("i686", "leaky_i686", folder, **ITEMS)
        return the_log(folder, "_quarlAll.log")

    def logs(self):
        yield from (self.made_up(seed) for seed in range(3))
        yield self.real()

    def test_what_was_live_at_the_highest_point(self):
        for log in self.logs():
            lives, records = raw_log.lives_of(log)
            most, at = raw_log.peak_of(lives, records)
            document = self.json("peak", "--by", "thread", log)
            self.assertEqual(document["peak"], {"bytes": most, "sequence": records[at].seq, "time": records[at].time,
                                                "thread": records[at].tid})
            there = raw_log.live_at(lives, at)
            self.assertEqual(shown(document), raw_log.sums(there))
            self.assertEqual(document["live"]["bytes"], sum(life.record.size for life in there))
            some = [life for life in there if 100 <= life.record.size <= 1000 and records[at].time - life.record.time >= 1]
            chosen = self.json("peak", "--by", "thread", log, "--min-size", 100, "--max-size", 1000, "--min-age", 1)
            self.assertEqual(shown(chosen), raw_log.sums(some))

    def test_what_was_live_at_a_moment(self):
        for log in self.logs():
            lives, records = raw_log.lives_of(log)
            numbers = [record.seq for record in records if record.seq]
            for number in (1, numbers[len(numbers) // 3], numbers[len(numbers) // 2], numbers[-1], numbers[-1] + 9):
                past = next((index for index, record in enumerate(records) if record.seq > number), len(records))
                document = self.json("at", number, "--by", "thread", log)
                self.assertEqual(shown(document), raw_log.sums(raw_log.live_at(lives, past - 1)), number)
        log = self.made_up(0)
        lives, records = raw_log.lives_of(log)
        for moment in ("+20", "@1020", "1970-01-01 00:17:00", "1970-01-01T00:17:00Z"):
            past = next(index for index, record in enumerate(records) if record.time > 1020)
            self.assertEqual(shown(self.json("at", moment, "--by", "thread", log)), raw_log.sums(raw_log.live_at(lives, past - 1)))
        self.assertIn("is none", self.report("at", "noon", log, status=2)[1])

    def test_what_comes_and_goes(self):
        for log in self.logs():
            lives, records = raw_log.lives_of(log)
            self.assertEqual(shown(self.json("hot", "--by", "thread", log)), raw_log.sums(lives))
            first, second = [self.json("hot", "--by", "size", "--sort", order, log)["sites"] for order in ("bytes", "count")]
            self.assertEqual([site["count"] for site in second], sorted((site["count"] for site in first), reverse=True))
            for within in (0, 1, 2, 5, 40):
                document = self.json("temporary", "--by", "thread", log, *(["--within", within] if within else []))
                self.assertEqual(shown(document), raw_log.sums(raw_log.temporary(lives, records, within)), within)
                ended = [life for life in lives if life.ended_by]
                self.assertEqual(document["released"]["count"], len(ended))
            thread = lives[0].record.tid
            small = [life for life in lives if life.record.size < 500 and life.record.tid == thread]
            self.assertEqual(shown(self.json("hot", "--by", "thread", log, "--thread", thread, "--max-size", 499)), raw_log.sums(small))

    def test_moments_need_the_records(self):
        log = self.write(self.layout.log([self.layout.record(MALLOC, ALLOCATED, 0x1000, 1)], count=1, time=9), "s_1_quarl.log")
        for verb in (["peak"], ["at", "1"], ["hot"], ["temporary"]):
            self.assertIn("needs a record log", self.report(*verb, log, status=1)[1])


    def test_a_timeline_of_what_is_chosen(self):
        module = "".join(f"{0x8000 + 0x1000 * i:08x}-{0x9000 + 0x1000 * i:08x} r-xp 00000000 00:00 1 /lib/{name}\n" for i, name in enumerate("ab"))
        columns = ("bytes", "file_bytes", "count", "peak")
        told = lambda path, *options: self.json("timeline", path, *options)["points"]
        figures = lambda path, *options: {point["time"]: [point[key] for key in columns] for point in told(path, *options)}
        for log in self.logs():
            everything = self.json("timeline", log)
            self.assertEqual(self.json("timeline", log, "--min-size", 0)["points"], everything["points"])
            thread = next(raw_log.records_of(log)).tid
            for options, chosen in ((("--thread", thread), lambda record: record.tid == thread),
                                    (("--min-size", 500, "--max-size", 9000), lambda record: 500 <= record.size <= 9000),
                                    (("--thread", thread, "--min-size", 8192), lambda record: record.tid == thread and record.size >= 8192)):
                mine = raw_log.held_over_time(log, chosen)
                if everything["axis"] == "seconds":
                    self.assertEqual(figures(log, *options), mine, options)
                else:  # all within a second, with a point for each record
                    points, [(*last, most)] = told(log, *options), mine.values()
                    self.assertEqual([points[-1][key] for key in columns[:3]], last)
                    self.assertEqual(max(point["peak"] for point in points), most)
            self.assertIn("--min-age", self.report("timeline", log, "--min-age", 1, status=2)[1])
        record = self.layout.record
        log = self.write(self.layout.log([record(MALLOC, ALLOCATED, 0x40, 10, [0x8011], seq=1), record(MALLOC, ALLOCATED, 0x80, 7, [0x9011], seq=2, time=1001)],
                                         maps=module, time=1001))
        self.assertEqual(figures(log, "--module", "lib/b$"), {1000: [0, 0, 0, 0], 1001: [7, 0, 1, 7]})

    def test_a_timeline_of_what_is_chosen_from_snapshots(self):
        record = self.layout.record
        block = lambda address, size, **more: record(MALLOC, ALLOCATED, address, size, [0x11], **more)
        rows = [[block(0x40, 10, tid=5, time=90), block(0x80, 500, tid=6, time=99)], [block(0x40, 10, tid=5, time=90)],
                [block(0x40, 10, tid=5, time=90), block(0xC0, 30, tid=5, time=119), record(MMAP, ALLOCATED, 0x10000, 4096, tid=5, time=119)]]
        shots = [(100 + 10 * index, 600, records, []) for index, records in enumerate(rows)]
        path = self.write(self.layout.chain(shots), "t_1_quarl_autosnap.log")
        points = lambda *options: [(p["time"], p["bytes"], p["count"], p["peak"]) for p in self.json("timeline", path, *options)["points"]]
        self.assertEqual(points("--thread", 5), [(100, 10, 1, 10), (110, 10, 1, 10), (120, 4136, 3, 4136)])
        self.assertEqual(points("--min-size", 100), [(100, 500, 1, 500), (110, 0, 0, 500), (120, 4096, 1, 4096)])
        self.assertEqual(points("--min-age", 15), [(100, 0, 0, 0), (110, 10, 1, 10), (120, 10, 1, 10)])
        bare = self.write(self.layout.bare_chain([100, 105]), "b_1_quarl_autosnap.log")
        self.assertIn("snapshot 1 does not list what it holds", self.report("timeline", bare, "--thread", 5, status=2)[1])

    def test_one_thread(self):
        for log in (self.real(), self.made_up(1)):
            rows = self.json("threads", log)["threads"]
            self.assertGreater(len(rows), 1)
            for row in rows:
                self.assertEqual(self.json("threads", log, "--thread", row["tid"])["threads"], [row])
            self.assertIn("no thread 77777 was recorded", self.report("threads", log, "--thread", 77777, status=1)[1])
        for option in ("--min-size", "--max-age", "--module"):
            self.assertIn(option, self.report("threads", log, option, 1, status=2)[1])

    def test_what_can_choose_nothing_is_refused(self):
        # Each would be told as no leaks at all otherwise, and pass on a build server.
        record = self.layout.record
        timeless = self.write(self.layout.log([record(MALLOC, ALLOCATED, 0x1000, 100, [0x11], time=0, seq=1)], time=9))
        for option in ("--min-age", "--max-age"):
            for verb in (["leaks", "--fail-on-leak", 1], ["peak"], ["hot"], ["--fail-on-leak", 1]):
                self.assertIn("no times (QUARL_HEAD_TIME=2", self.report(*verb, timeless, option, 0, status=1)[1])
        for moment in ("@5", "+1", "2026-01-31 12:00:00"):
            self.assertIn("ask for a number", self.report("at", moment, timeless, status=1)[1])
        self.assertEqual(self.json("at", 1, timeless)["live"], {"bytes": 100, "count": 1})
        timed = self.write(self.layout.log([record(MALLOC, ALLOCATED, 0x1000, 100, [0x11], seq=1)], time=9))
        self.assertEqual(self.json("at", "+4294967295", timed)["live"], {"bytes": 100, "count": 1})  # the end of all times
        for what in ("size", "age"):
            crossed = [f"--min-{what}", 6, f"--max-{what}", 5, "--fail-on-leak", 1]
            self.assertIn("nothing is left to choose", self.report("leaks", timeless, *crossed, status=2)[1])
        self.assertEqual(self.json("leaks", timeless, "--min-size", 100, "--max-size", 100)["unfreed"]["count"], 1)
        for negative in (["leaks", "--fail-on-leak", -1], ["--top", -1], ["events", "--limit", -1]):
            self.assertIn("from 0 on", self.report(*negative, timeless, status=2)[1])

    def test_faults_are_chosen_before_they_are_too_many(self):
        record = self.layout.record
        maps = "00008000-00009000 r-xp 00000000 00:00 1 /lib/a\n00009000-0000a000 r-xp 00000000 00:00 1 /lib/b\n"
        faults = [record(MALLOC, SLOP_TAIL, 0x100000 + 64 * index, 20, [0x8011], tid=1, seq=index + 1) for index in range(1500)]
        faults += [record(MALLOC, SLOP_HEAD, 0x200000 + 64 * index, 30 + index, [0x9011], tid=2, seq=2000 + index) for index in range(3)]
        path = self.write(self.layout.log([record(MALLOC, ALLOCATED, 0x40, 8, [0x8011]), *faults], maps=maps, time=9))
        shown = lambda *options: (lambda told: (told["fault_count"], [fault["size"] for fault in told["faults"]]))(self.json("faults", path, *options))
        self.assertEqual((shown()[0], len(shown()[1])), (1503, 1000))
        self.assertEqual(shown("--thread", 2), (3, [30, 31, 32]))
        self.assertEqual(shown("--min-size", 31), (2, [31, 32]))
        self.assertEqual(shown("--module", "lib/b"), (3, [30, 31, 32]))
        self.assertEqual(shown("--thread", 2, "--max-size", 30), (1, [30]))
        self.assertTrue(self.text("faults", path, "--thread", 2).startswith("3 faults\n"))
        self.assertEqual(len(self.text("faults", path, "--thread", 2, "--format", "csv").splitlines()), 4)
        self.assertIn("--min-age", self.report("faults", path, "--min-age", 1, status=2)[1])
        # Whether the listing of a snapshot ends at a fault does not go by what is shown.
        snapshot = self.write(self.layout.log([record(MALLOC, SLOP_HEAD, 0x40, 8, [0x8011], tid=1)], count=1, time=9), "s_1_quarl.log")
        self.assertFalse(self.json("faults", snapshot, "--thread", 2)["log"]["whole"])


class Growth(ReportTest):
    def chain(self, *columns):
        """A chain of one snapshot a row; each site holds so many blocks of 10 bytes."""
        shots = []
        for row, counts in enumerate(columns):
            records = [self.layout.record(MALLOC, ALLOCATED, (site + 1 << 20) + 64 * block, 10, [0x11 + 16 * site])
                       for site, count in enumerate(counts) for block in range(count)]
            shots.append((100 + 10 * row, 0, records, []))
        return self.write(self.layout.chain(shots), "g_1_quarl_autosnap.log")

    def test_steady_growth_comes_first(self):
        # Steadily, in steps of two, once and for all, up and down, never.
        log = self.chain((1, 0, 0, 5, 3), (2, 0, 0, 1, 3), (3, 2, 90, 6, 3), (4, 2, 90, 1, 3), (5, 4, 90, 6, 3))
        document = self.json("grow", log)
        self.assertEqual([(site["name"], site["steadiness"], round(site["slope"], 9)) for site in document["sites"]],
                         [("0x00000010", 1.0, 1.0), ("0x00000020", 0.5, 1.0)])
        self.assertEqual(document["sites"][1]["points"], [[0, 0], [0, 0], [20, 2], [20, 2], [40, 4]])
        self.assertEqual((document["axis"], document["times"]), ("seconds", [100, 110, 120, 130, 140]))
        self.assertIn("+1 bytes a second, steadiness 1.00: from 10 bytes in 1 block to 50 bytes in 5 blocks", self.text("grow", log))
        again = self.json("grow", f"{log}@5", f"{log}@1", f"{log}@3")
        self.assertEqual([site["slope"] for site in again["sites"]], [1.0, 1.0])
        fallen = self.text("grow", self.chain((1,), (3,), (6,), (5,)))
        self.assertIn(": from 10 bytes in 1 block to 50 bytes in 5 blocks, at most 60 bytes in 6 blocks\n", fallen)
        self.assertIn("3 snapshots", self.report("grow", self.chain((1,), (2,)), status=1)[1])


class Callers(ReportTest):
    def test_from_a_function_outwards(self):
        record = self.layout.record
        log = self.write(self.layout.log([
            record(MALLOC, ALLOCATED, 0x1000, 100, [0x11, 0x21, 0x31], seq=1), record(MALLOC, ALLOCATED, 0x2000, 50, [0x21, 0x41], seq=2),
            record(MALLOC, ALLOCATED, 0x3000, 7, [0x51], seq=3), record(FREE, RELEASED, 0x2000, 50, [0x11], seq=4)], time=9))
        tree = lambda *more: self.json("callers", "0x00000020", log, *more)
        self.assertEqual(tree()["tree"], {"name": "", "bytes": 100, "count": 1, "children": [
            {"name": "0x00000020", "bytes": 100, "count": 1, "children": [{"name": "0x00000030", "bytes": 100, "count": 1, "children": []}]}]})
        self.assertEqual(tree()["all"], {"bytes": 107, "count": 2})
        self.assertEqual(self.text("callers", "^0x00000020$", log, "--view", "allocated", "--format", "folded"),
                         "0x00000020;0x00000030 100\n0x00000020;0x00000040 50\n")
        self.assertEqual((tree("--view", "peak")["tree"]["bytes"], tree("--view", "peak")["all"]["bytes"]), (150, 157))
        self.report("callers", "nobody", log, status=1)


if __name__ == "__main__":
    unittest.main()
