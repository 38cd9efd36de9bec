# SPDX-License-Identifier: Apache-2.0
"""Logs that the real library makes of programs whose leaks are known to the byte, on each target."""

import re
import subprocess
import tempfile
import unittest
from pathlib import Path

from pprof import Profile
from support import PROGRAMS, RUNNERS, ReportTest, run_checked, the_log

ITEMS = {"ALL": 1, "MEM_HEAD": 1, "PROF": 1, "THREAD": 1, "HEAD_TIME": 2, "MMAP": 1}

# Of leaky: the innermost functions of the program, bytes and count.
LEAKS = {
    ("leak_list", "first_caller", "main"): (72, 3),
    ("leak_list", "second_caller", "main"): (48, 2),
    ("leak_buffer", "main"): (1000, 1),
    ("leak_inlined", "call_inlined", "main"): (154, 2),
    ("leak_large", "main"): (300000, 1),
    ("leak_mapping", "main"): (8192, 1),
    ("leak_both", "main"): (66, 2),
    ("leak_in_thread",): (200, 4),
}


def of_program(document, program):
    """Sites whose innermost frame is the program's own: its functions with the bytes and the count."""
    sites = {}
    for site in document["sites"]:
        frames = [frame["function"] for frame in site["frames"] if frame["module"].endswith(program)]
        if frames and site["frames"][0]["module"].endswith(program):
            sites[tuple(frames)] = (site["bytes"], site["count"])
    return sites


class Library(ReportTest):
    def run_leaky(self, target, *arguments, **items):
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        run_checked(target, f"leaky_{target}", folder, *arguments, **{**ITEMS, **items})
        return folder

    def test_every_leak_from_a_snapshot_and_from_the_records(self):
        for target in RUNNERS:
            with self.subTest(target):
                snapshot = the_log(self.run_leaky(target), "_quarl.log")
                records = the_log(self.run_leaky(target, OUTPUT_LOG=1), "_quarlAll.log")
                totals = []
                for log, kind in ((snapshot, "snapshot log"), (records, "record log")):
                    document = self.json(log)
                    self.assertEqual(document["log"]["kind"], kind)
                    self.assertEqual(document["log"]["notes"], [])
                    self.assertEqual(of_program(document, f"leaky_{target}"), LEAKS)
                    # What the library counted is what its records add up to.
                    kept = document["suppressed_by_default"]["bytes"]  # a thread's storage
                    self.assertEqual(document["held"]["bytes"], document["unfreed"]["bytes"] + kept)
                    totals.append((document["unfreed"], kept, sorted((s["bytes"], s["count"]) for s in document["sites"])))
                self.assertEqual(*totals)

    def test_lines_and_inlined_calls(self):
        for target in RUNNERS:
            with self.subTest(target):
                document = self.json("leaks", the_log(self.run_leaky(target), "_quarl.log"))
                source = (Path(__file__).parent / "programs/leaky.c").read_text().splitlines()
                inlined = next(site for site in document["sites"] if site["bytes"] == 154)["frames"]
                self.assertEqual([(f["function"], f["inlined"]) for f in inlined[:2]], [("leak_inlined", True), ("call_inlined", False)])
                self.assertIn("malloc(77)", source[inlined[0]["line"] - 1])
                self.assertIn("keep(leak_inlined())", source[inlined[1]["line"] - 1])
                self.assertIn("call_inlined()", source[inlined[2]["line"] - 1])

    def test_what_the_program_called_is_one_line(self):
        for target in RUNNERS:
            with self.subTest(target):
                log = the_log(self.run_leaky(target), "_quarl.log")
                entries = {site["bytes"]: site["frames"][0].get("entry") for site in self.json("leaks", log)["sites"]}
                self.assertEqual([entries[size] for size in (1000, 8192)], ["realloc", "mmap"])
                self.assertIn(entries[66], ("malloc and others", "calloc and others"))
                self.assertRegex(self.text("leaks", log), r"\n1,000 bytes in .*\n    in  realloc\n    #0  leak_buffer \(")

    def test_a_profile_names_the_functions_and_the_build(self):
        for target in RUNNERS:
            with self.subTest(target):
                log = the_log(self.run_leaky(target), "_quarl.log")
                profile = Profile(self.report("leaks", log, "--format", "pprof")[0])
                program = next(index for index, mapping in enumerate(profile.mappings, 1) if mapping.path.endswith(f"/leaky_{target}"))
                sites = {}
                for sample in profile.samples:
                    own = [place for place in sample.stack if place.mapping == program]
                    if own and sample.count and sample.stack[0].mapping == program:
                        site = tuple(name for place in own for name in place.functions)
                        bytes_, count = sites.get(site, (0, 0))
                        sites[site] = bytes_ + sample.bytes, count + sample.count
                self.assertEqual(sites, LEAKS)
                notes = subprocess.run(["readelf", "-n", PROGRAMS / f"leaky_{target}"], capture_output=True, text=True, check=True)
                self.assertEqual(profile.mappings[program - 1].build_id, re.search(r"Build ID: (\w+)", notes.stdout)[1])

    def test_known_leaks_are_left_out(self):
        log = the_log(self.run_leaky("i686"), "_quarl.log")
        known = self.folder / "known.txt"
        for pattern, hidden in (("list", 120), ("^second*er$", 48), ("^list", 0), ("leaky.c", 309732), ("ld-linux", 144), ("call_inl*", 154)):
            known.write_text(f"# known\n\n  leak:{pattern}\n")
            document = self.json("leaks", log, "--suppress", known)
            self.assertEqual(document["suppressed"]["bytes"], hidden, pattern)
            kept = document["suppressed_by_default"]["bytes"]
            self.assertEqual(document["unfreed"]["bytes"] + kept + hidden, 309876)

    def test_statistics_and_threads_agree(self):
        for target in RUNNERS:
            with self.subTest(target):
                folder = self.run_leaky(target, OUTPUT_LOG=1)
                log = the_log(folder, "_quarlAll.log")
                by_table = self.json("threads", log)
                self.assertEqual(by_table["source"], "thread table")
                self.assertEqual(sum(thread["bytes_held"] for thread in by_table["threads"]), self.json(log)["held"]["bytes"])
                worker = min(by_table["threads"], key=lambda thread: thread["bytes_allocated"])
                self.assertEqual((worker["allocations"], worker["bytes_allocated"], worker["peak"]), (4, 200, 200))
                events = self.json("events", log, "--thread", worker["tid"], "--result", "allocated")["events"]
                self.assertEqual([event["size"] for event in events], [50] * 4)

    def test_a_second_snapshot_hides_the_first(self):
        for target in RUNNERS:
            with self.subTest(target):
                log = the_log(self.run_leaky(target, "signal"), "_quarl.log")
                self.assertEqual(of_program(self.json("leaks", log), f"leaky_{target}"), LEAKS)

    def test_growth_between_automatic_snapshots(self):
        for target in RUNNERS:
            with self.subTest(target):
                folder = Path(tempfile.mkdtemp(dir=self.folder))
                name = f"growing_{target}" if target == "i686" else "qemu-arm"
                items = {**ITEMS, "TIME_INTERVAL": 1, "SNAP_INTERVAL": 1, "SNAP_DETAIL": 1}
                run_checked(target, f"growing_{target}", folder, f"{name}_%d_quarl_autosnap.log", "3", **items)
                log = the_log(folder, "_autosnap.log")
                document = self.json("diff", f"{log}@1", log)
                grown = [change for change in document["changes"] if change["name"].startswith("grow ")]
                self.assertEqual([(c["bytes"] % 10000, c["count"] > 0) for c in grown], [(0, True)])
                self.assertFalse(any(change["name"].startswith("stay ") for change in document["changes"]))
                points = self.json("timeline", log)["points"]
                self.assertEqual([point["snapshot"] for point in points], list(range(1, len(points) + 1)))
                self.assertEqual([p["bytes"] for p in points], sorted(p["bytes"] for p in points))
                self.assertEqual(points[-1]["bytes"], self.json(log)["unfreed"]["bytes"])


if __name__ == "__main__":
    unittest.main()
