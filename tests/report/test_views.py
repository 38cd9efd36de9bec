"""What was live at a moment, what comes and goes, what grows: each figure against sums made here from the raw records."""

import random
import tempfile
import unittest
from pathlib import Path

import raw_log
from log_builder import (ALLOCATED, FAILED, FREE, MALLOC, MMAP, MUNMAP, REALLOC, REALLOC_RELEASE, RELEASED)
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
