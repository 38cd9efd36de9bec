# SPDX-License-Identifier: Apache-2.0
"""What the verbs make of records: matching, grouping, differences, time, threads, events, faults."""

import csv
import io
import json
import random
import unittest

from log_builder import (ALLOCATED, CHUNK_MAP, FAILED, FREE, MALLOC, MEMALIGN, MMAP, MMAP_FILE, MUNMAP, REALLOC, REALLOC_RELEASE,
                         RELEASED, SLOP_HEAD, SLOP_TAIL, broken)
from support import ReportTest


class Matching(ReportTest):
    def held(self, *records):
        """Address and size of what a record log leaves held, as the sizes grouped by the tool say it."""
        document = self.json("leaks", "--by", "size", self.write(self.layout.log(records, time=9)))
        return {int(site["name"].split()[0]): site["count"] for site in document["sites"]}, document

    def test_addresses_are_used_again(self):
        record = self.layout.record
        held, _ = self.held(record(MALLOC, ALLOCATED, 0x1000, 10), record(FREE, RELEASED, 0x1000, 10),
                            record(MEMALIGN, ALLOCATED, 0x1000, 20), record(REALLOC_RELEASE, RELEASED, 0x1000, 20),
                            record(REALLOC, ALLOCATED, 0x1000, 30))
        self.assertEqual(held, {30: 1})

    def test_a_failed_resize_keeps_the_block(self):
        record = self.layout.record
        held, document = self.held(record(MALLOC, ALLOCATED, 0x1000, 10), record(REALLOC_RELEASE, RELEASED, 0x1000, 10),
                                   record(REALLOC, FAILED, 0, 99), record(MALLOC, ALLOCATED, 0x1000, 10),
                                   record(FREE, RELEASED, 0x7777, 5))
        self.assertEqual(held, {10: 1})
        self.assertEqual(document["log"]["notes"], ["1 releases are of blocks whose allocation is not in the log.",
                                                    "The log holds no memory map: addresses cannot be resolved."])

    def test_unmapping_follows_the_library(self):
        record = self.layout.record
        mapped = lambda start, size, **more: record(MMAP, ALLOCATED, start, size, **more)
        unmapped = lambda start, size: record(MUNMAP, RELEASED, start, size)
        held, _ = self.held(
            mapped(0x10000, 0x2000), unmapped(0x11000, 0x1000),  # the end of it: all is released
            mapped(0x20000, 0x3000), unmapped(0x20000, 0x1000),  # the front: it stays
            mapped(0x30000, 0x4000, from_file=1), unmapped(0x31000, 0x3000),  # of a file: only the whole counts
            mapped(0x40000, 0x5000, from_file=1), unmapped(0x40000, 0x5000))
        self.assertEqual(held, {0x3000: 1, 0x4000: 1})

    def test_a_large_block_is_not_counted_twice(self):
        record = self.layout.record
        mapping, block = record(MMAP, ALLOCATED, 0x40000000, 303104), record(MALLOC, ALLOCATED, 0x40000040, 300000)
        for content in (self.layout.log([mapping, block], time=9), self.layout.log([block, mapping], count=2, time=9)):
            document = self.json(self.write(content))
            self.assertEqual(document["unfreed"], {"bytes": 300000, "count": 1})
            self.assertEqual(document["recorded"]["bytes"], 300000)
        gone = [mapping, block, record(FREE, RELEASED, 0x40000040, 300000), record(MUNMAP, RELEASED, 0x40000000, 303104)]
        self.assertEqual(self.json(self.write(self.layout.log(gone, time=9)))["recorded"],
                         {"bytes": 0, "peak": 300000, "file_bytes": 0, "file_peak": 0, "count": 0})

    def test_many_blocks_come_and_go(self):
        # The addresses share their low bits, as those of one size class do; every third stays.
        record = self.layout.record
        addresses = [0x10000 + 4096 * index for index in range(6000)]
        records = [record(MALLOC, ALLOCATED, address, 8) for address in addresses]
        records += [record(FREE, RELEASED, address, 8) for index, address in enumerate(addresses) if index % 3]
        held, _ = self.held(*records)
        self.assertEqual(held, {8: 2000})

    def test_a_long_log_adds_up(self):
        # Against the plainest reading of the same records: addresses used again, with releases missing or unknown,
        # traces of every depth, and records that cannot be in between.
        chance = random.Random(11)
        traces = [tuple(chance.randrange(2, 1 << 32) for _ in range(chance.randrange(20))) for _ in range(1500)]
        traces += [trace[:-1] + (trace[-1] ^ 0x100,) for trace in traces if trace]
        record, records, held = self.layout.record, [], {}
        counted = dict.fromkeys(("calls", "bytes", "frees", "failed", "lost", "damaged", "now", "peak"), 0)
        for _ in range(20000):
            address, size, trace = 16 * chance.randrange(1, 9000), chance.randrange(500), chance.choice(traces)
            what = chance.random()
            if what < 0.55:
                records.append(record(MALLOC, ALLOCATED, address, size, trace))
                counted["calls"] += 1
                counted["bytes"] += size
                counted["lost"] += address in held
                counted["now"] += size - held.pop(address, (0, None))[0]
                counted["peak"] = max(counted["peak"], counted["now"])
                held[address] = size, trace
            elif what < 0.95:
                address = chance.choice([*held]) if held and what < 0.9 else address
                records.append(record(FREE, RELEASED, address, 0, trace))
                counted["frees"] += 1
                counted["now"] -= held.pop(address, (0, None))[0]
            elif what < 0.98:
                records.append(record(MALLOC, FAILED, 0, size, trace))
                counted["calls"] += 1
                counted["failed"] += 1
            else:
                records.append(chance.choice(broken(record(MALLOC, ALLOCATED, address, size))))
                counted["damaged"] += 1
        path = self.write(self.layout.log(records, time=9))
        document = self.json(path)
        self.assertEqual(document["recorded"], {"bytes": counted["now"], "peak": counted["peak"], "file_bytes": 0, "file_peak": 0, "count": len(held)})
        self.assertEqual(document["log"]["notes"][:2], [f"{counted['damaged']} damaged records were left out.",
                         f"{counted['lost']} blocks were given out again although no release of them is in the log."])
        operations = {row["operation"]: (row["calls"], row["failed"], row["bytes"]) for row in document["operations"]}
        self.assertEqual(operations["malloc"], (counted["calls"], counted["failed"], counted["bytes"]))
        self.assertEqual(operations["free"], (counted["frees"], 0, 0))
        sums = {}
        for size, trace in held.values():
            before = sums.get(trace, (0, 0))
            sums[trace] = before[0] + size, before[1] + 1
        found = {tuple(frame["address"] + 1 for frame in site["frames"]): (site["bytes"], site["count"])
                 for site in self.json("leaks", path)["sites"]}
        self.assertEqual(found, sums)


class Sites(ReportTest):
    def sample(self):
        record = self.layout.record
        return self.write(self.layout.log([
            record(MALLOC, ALLOCATED, 0x1000, 100, [0x8001, 0x9001], tid=7, time=50),
            record(MALLOC, ALLOCATED, 0x2000, 300, [0x8001, 0x9001], tid=8, time=40),
            record(MALLOC, ALLOCATED, 0x3000, 50, [0x8001, 0xA001], tid=7, time=60),
            record(MMAP_FILE, ALLOCATED, 0x4000, 4096, [], tid=0, time=0, from_file=1)], time=70))

    def test_grouping(self):
        sites = lambda by: [(s["name"], s["bytes"], s["count"]) for s in self.json("leaks", "--by", by, self.sample())["sites"]]
        none = ("(no call trace recorded)", 4096, 1)
        self.assertEqual(sites("trace"), [none, ("0x00008000", 400, 2), ("0x00008000", 50, 1)])
        self.assertEqual(sites("function"), [none, ("0x00008000", 450, 3)])
        self.assertEqual(sites("thread"), [("(thread not recorded)", 4096, 1), ("8", 300, 1), ("7", 150, 2)])
        self.assertEqual(sites("size")[1:], [("300 bytes", 300, 1), ("100 bytes", 100, 1), ("50 bytes", 50, 1)])
        first = self.json("leaks", self.sample())["sites"][1]
        self.assertEqual((first["oldest"], first["newest"], first["smallest"], first["largest"], first["threads"], first["kind"]),
                         (40, 50, 100, 300, [7, 8], "heap"))

    def test_tree_and_histogram(self):
        tree = self.json("leaks", "--tree", self.sample())["tree"]
        self.assertEqual([(c["name"], c["bytes"]) for c in tree["children"]],
                         [("(no call trace recorded)", 4096), ("0x00009000", 400), ("0x0000a000", 50)])
        self.assertEqual([level["count"] for level in self.json(self.sample())["histogram"]], [1, 2, 1, 0, 0])

    def test_suppression_and_the_build_server(self):
        known = self.folder / "known.txt"
        path = self.sample()
        self.report("leaks", path, "--fail-on-leak", "4546")
        self.assertIn("4546 bytes in 4 blocks", self.report("leaks", path, "--fail-on-leak", "4545", status=3)[1])
        known.write_text("leek:typo\n")
        self.assertIn("known.txt:1:", self.report("leaks", path, "--suppress", known, status=1)[1])

    def test_wrong_questions_are_refused(self):
        path = self.sample()
        for arguments in (["leaks"], ["diff", path], ["leaks", path, "--format", "html"], ["leaks", path, "--tree", "--by", "size"],
                          [path, path], [path, "--format", "sqlite"], ["leaks", path, "--map", "nothing"], []):
            self.assertNotEqual(self.report(*arguments, status=2)[1], "", arguments)


class Difference(ReportTest):
    def test_new_grown_shrunk_and_gone(self):
        record = self.layout.record
        def blocks(**sites):
            place = {"stays": 0x11, "grows": 0x21, "shrinks": 0x31, "goes": 0x41, "comes": 0x51}
            return [record(MALLOC, ALLOCATED, (place[name] << 16) + 64 * i, 10, [place[name]]) for name, count in sites.items() for i in range(count)]
        path = self.write(self.layout.chain([(1, 0, blocks(stays=2, grows=1, shrinks=5, goes=2), []),
                                             (2, 0, blocks(stays=2, grows=4, shrinks=4, comes=2), [])]), "a_autosnap.log")
        document = self.json("diff", f"{path}@1", f"{path}@2")
        self.assertEqual([(c["change"], c["name"], c["bytes"], c["count"]) for c in document["changes"]],
                         [("grew", "0x00000020", 30, 3), ("new", "0x00000050", 20, 2), ("shrank", "0x00000030", -10, -1), ("gone", "0x00000040", -20, -2)])
        self.assertIn("+20 bytes in +2 blocks", self.text("diff", f"{path}@1", f"{path}@2"))
        self.assertIn("0x00000040 20 0\n", self.text("diff", f"{path}@1", f"{path}@2", "--format", "folded"))
        self.report("diff", f"{path}@1", f"{path}@2", "--fail-on-leak", "19", status=3)


class Time(ReportTest):
    def test_a_timeline_of_records(self):
        record = self.layout.record
        records = [record(MALLOC, ALLOCATED, 0x1000 * (i + 1), 100, time=1000 + i // 2) for i in range(6)]
        records += [record(FREE, RELEASED, 0x1000, 100, time=1010)]
        points = self.json("timeline", self.write(self.layout.log(records, time=1011)))["points"]
        self.assertEqual([(p["time"], p["bytes"], p["count"]) for p in points],
                         [(1000, 200, 2), (1001, 400, 4), (1002, 600, 6), (1010, 500, 5)])

    def test_without_times_the_records_are_counted_and_points_stay_few(self):
        record = self.layout.record
        records = [record(MALLOC, ALLOCATED, 64 * (i + 1), 1, time=0) for i in range(10000)]
        document = self.json("timeline", self.write(self.layout.log(records)))
        self.assertEqual(document["axis"], "records")
        self.assertLess(len(document["points"]), 2049)
        self.assertEqual(document["points"][-1]["bytes"], 10000)

    def test_a_timeline_of_snapshots(self):
        path = self.write(self.layout.bare_chain([100, 105, 110]), "a_autosnap.log")
        # The counted peak, 1,000 bytes of the whole run, was reached before the first of them.
        self.assertEqual([(p["time"], p["bytes"], p["count"], p["peak"]) for p in self.json("timeline", path)["points"]],
                         [(100, 100, None, 1000), (105, 200, None, 200), (110, 300, None, 300)])
        plot = self.text("timeline", path)
        self.assertIn("1,000 |", plot)
        self.assertIn("1970-01-01 00:01:50 UTC", plot)

    def test_the_plot_shows_a_peak_that_no_point_falls_on(self):
        record = self.layout.record
        records = [record(MALLOC, ALLOCATED, 0x1000, 100, time=1000)]
        for second in range(5000):
            records.append(record(MALLOC, ALLOCATED, 0x2000, 48, time=1000 + second))
            if second == 2345:
                records += [record(MALLOC, ALLOCATED, 0x100000, 64 << 20, time=1000 + second),
                            record(FREE, RELEASED, 0x100000, 64 << 20, time=1000 + second)]
            records.append(record(FREE, RELEASED, 0x2000, 48, time=1000 + second))
        plot = self.text("timeline", self.write(self.layout.log(records))).splitlines()
        self.assertRegex(plot[1], r"^ *67,109,012 \| +█ +$")
        self.assertRegex(plot[16], r"^ *3 \| +█ +$")


class Resident(ReportTest):
    """Memory that the process had at its snapshots, as its events tell."""

    def tell(self, *events, name="events.jsonl"):
        lines = ["no JSON"]
        for time, kind, log, resident, *pid in events:
            lines.append(json.dumps({"v": 1, "event": "snapshot", "pid": pid[0] if pid else 4242, "time": time, "kind": kind,
                                     "path": f"/var/log/{log}", **({"resident": resident} if resident else {})}))
        (self.folder / name).write_text("\n".join(lines))
        return self.folder / name

    def points(self, path, *options):
        rows = list(csv.DictReader(io.StringIO(self.text("timeline", path, "--format", "csv", *options))))
        document = self.json("timeline", path, *options)
        self.assertEqual([str(point.get("resident") or "") for point in document["points"]], [row.get("resident") or "" for row in rows])
        return [point.get("resident", "left out") for point in document["points"]]

    def test_each_snapshot_of_a_chain_has_its_own(self):
        name = "app_4242_quarl_autosnap.log"
        path = self.write(self.layout.bare_chain([100, 105, 110, 110, 300]), name)
        self.assertEqual(self.points(path), ["left out"] * 5)
        self.assertNotIn("Resident", self.text(path) + self.text("timeline", path))
        told = self.tell((90.5, "auto", name, 11), (100.9, "auto", name, 1000), (102, "auto", "app_4243_quarl_autosnap.log", 12),
                         (103, "auto", name, 13, 77), (104, "dump", "app_4242_quarl.log", 14), (106.0, "auto", name, None),
                         (110.1, "auto", name, 3000), (110.2, "auto", name, 4000), (500, "auto", name, 15))
        self.assertEqual(self.points(path), [1000, None, 3000, 4000, None])  # of the second one the kernel did not tell
        told.unlink()
        self.tell(*[(time + 0.5, "auto", name, size) for time, size in ((100, 1 << 20), (106, 2 << 20), (110, 3 << 20), (110, 4 << 20), (301, 5 << 20))])
        self.assertEqual(self.points(path), [(index + 1) << 20 for index in range(5)])
        self.assertRegex(self.text(path), r"Resident +5,242,880 bytes")
        self.assertEqual([self.json(f"{path}@{number}")["resident"] for number in (1, 4, 5)], [1 << 20, 4 << 20, 5 << 20])
        plot = self.text("timeline", path)
        self.assertRegex(plot, r"Resident memory[^\n]*\n +5,242,880 \|")
        elsewhere = (self.folder / "events.jsonl").rename(self.folder / "other")
        self.assertEqual(self.points(path, "--events", elsewhere)[4], 5 << 20)

    def test_of_a_snapshot_log_and_beside_a_record_log(self):
        record = self.layout.record
        one = [record(MALLOC, ALLOCATED, 0x1000, 100, time=1000)]
        snapshot = self.write(self.layout.log(one, count=1, time=2000), "app_4242_quarl.log")
        records = [record(MALLOC, ALLOCATED, 0x1000 * i, 10, time=1000 + 10 * i) for i in range(1, 6)]
        path = self.write(self.layout.log(records, time=1100), "app_4242_quarlAll.log")
        self.tell((1005, "auto", "app_4242_quarl_autosnap.log", 1), (1015.25, "dump", "app_4242_quarl.log", 700),
                  (1034, "auto", "app_4242_quarl_autosnap.log", 800), (1036, "auto", "app_4242_quarl_autosnap.log", 900),
                  (1100.5, "exit", "app_4242_quarl.log", 950), (1100.5, "exit", "next_4242_quarl.log", 2), (2000.5, "dump", "app_4242_quarl.log", 5000))
        self.assertEqual(self.points(snapshot), [5000])
        self.assertEqual(self.points(path), [700, None, 900, None, 5000])
        self.assertEqual(self.json(path)["resident"], 950)
        timeless = [record(MALLOC, ALLOCATED, 0x1000 * i, 10, time=0) for i in range(1, 6)]
        path = self.write(self.layout.log(timeless, time=1100), "app_4242_quarlAll.log")
        self.assertEqual(set(self.points(path)), {"left out"})  # they have no time that an event could fall into


class Threads(ReportTest):
    def test_counted_from_records(self):
        record = self.layout.record
        path = self.write(self.layout.log([
            record(MALLOC, ALLOCATED, 0x1000, 100, tid=5, time=100), record(MALLOC, ALLOCATED, 0x2000, 50, tid=6, time=100),
            record(FREE, RELEASED, 0x1000, 100, tid=6, time=110), record(MALLOC, FAILED, 0, 1, tid=6, time=110)], time=111))
        document = self.json("threads", path)
        first, second = document["threads"]
        self.assertEqual((document["source"], document["seconds"]), ("records", 10))
        self.assertEqual((first["tid"], first["bytes_allocated"], first["bytes_held"], first["bytes_per_second"]), (5, 100, 0, 10.0))
        self.assertEqual((second["tid"], second["releases"], second["bytes_released"], second["failures"], second["bytes_held"]), (6, 1, 100, 1, 50))
        # With a table the rates are over the time since the first record that has one.
        late = [record(MALLOC, ALLOCATED, 16 * (i + 1), 1, time=0 if i < 999 else 100) for i in range(1000)]
        table = self.layout.log(late, time=125, threads=[self.layout.thread(1, "main", {MALLOC: 1000}, {MALLOC: 1000})])
        document = self.json("threads", self.write(table))
        self.assertEqual((document["source"], document["seconds"], document["threads"][0]["bytes_per_second"]), ("thread table", 25, 40.0))
        self.assertIn("no thread was recorded", self.report("threads", self.write(self.layout.log(time=1)), status=1)[1])

    def test_a_peak_with_large_blocks_is_qualified(self):
        small = self.layout.thread(1, "small", {MALLOC: 1}, {MALLOC: 10}, held=10, peak=10)
        large = self.layout.thread(2, "large", {MALLOC: 1, MMAP: 1, CHUNK_MAP: 1}, {MALLOC: 300000, MMAP: 303104, CHUNK_MAP: 303104},
                                   held=300000, peak=603104)
        for threads, exact in (([small], [True]), ([large, small], [False, True])):
            path = self.write(self.layout.log(time=1, threads=threads))
            self.assertEqual([thread["peak_exact"] for thread in self.json("threads", path)["threads"]], exact)
            self.assertEqual("counts twice for a moment" in self.text("threads", path), not all(exact))


class Events(ReportTest):
    def test_filters(self):
        record = self.layout.record
        path = self.write(self.layout.log([
            record(MALLOC, ALLOCATED, 0x1000, 100, [0x11], tid=5, time=100, seq=1), record(REALLOC, ALLOCATED, 0x2000, 3000, tid=6, time=101, seq=2),
            record(FREE, RELEASED, 0x1000, 100, tid=6, time=102, seq=3), record(MALLOC, FAILED, 0, 77, tid=5, time=103, seq=4)], time=104))
        shown = lambda *filters: [int(row["sequence"]) for row in csv.DictReader(io.StringIO(self.text("events", path, "--format", "csv", *filters)))]
        self.assertEqual(shown(), [1, 2, 3, 4])
        self.assertEqual(shown("--thread", "6"), [2, 3])
        self.assertEqual(shown("--op", "malloc", "--op", "free"), [1, 3, 4])
        self.assertEqual(shown("--result", "failed"), [4])
        self.assertEqual(shown("--since", "101", "--until", "102"), [2, 3])
        self.assertEqual(shown("--min-size", "78", "--max-size", "100"), [1, 3])
        self.assertEqual(shown("--address", "0x1063"), [1, 3])
        self.assertEqual(shown("--limit", "2"), [1, 2])
        self.report("events", path, "--thread", "99", status=1)
        self.assertEqual([event["size"] for event in self.json("events", path)["events"]], [100, 3000, 100, 77])


class Faults(ReportTest):
    def test_each_has_its_neighbours_at_that_moment(self):
        record = self.layout.record
        path = self.write(self.layout.log([
            record(MALLOC, ALLOCATED, 0x1000, 0x40, [0x21]), record(MALLOC, ALLOCATED, 0x1080, 0x40, [0x31]),
            record(MALLOC, ALLOCATED, 0x1100, 0x40, [0x41]), record(MALLOC, SLOP_TAIL, 0x1080, 0x40, [0x31], seq=2),
            record(FREE, RELEASED, 0x1100, 0x40), record(FREE, RELEASED, 0x1000, 0x40), record(MALLOC, SLOP_HEAD, 0x5000, 8, [])], time=9))
        tail, head = self.json("faults", path)["faults"]
        self.assertEqual((tail["fault"], tail["address"], tail["frames"][0]["text"]), ("tail overrun", 0x1080, "0x00000030"))
        self.assertEqual([(tail[side]["address"], tail[side]["distance"], tail[side]["frames"][0]["text"]) for side in ("below", "above")],
                         [(0x1000, 0x40, "0x00000020"), (0x1100, 0x40, "0x00000040")])
        self.assertEqual((head["fault"], head["below"]["address"], head["below"]["distance"], head["above"]), ("head overrun", 0x1080, 0x5000 - 0x10C0, None))
        self.assertEqual(self.json(path)["faults"], 2)


if __name__ == "__main__":
    unittest.main()
