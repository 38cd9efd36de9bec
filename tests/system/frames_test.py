# SPDX-License-Identifier: Apache-2.0
"""Call traces by the rules of tables (QUARL_FRAMES): of code without frame pointers, as distributions ship it."""

import os
import subprocess
import unittest
import unittest.mock
from pathlib import Path

import case
import log_file
import symbols
from promise import promise

LOGGED = "QUARL_OUTPUT_LOG=1 QUARL_HEAD_STACKDEPTH=20"
SHAPES = {  # of victims/rules.c, by the size of the block
    1001: ["malloc", "allocate"],
    1002: ["malloc", "allocate", "large_frame"],
    1003: ["malloc", "allocate", "moving_frame"],
    1004: ["malloc", "allocate", "moving_frame", "moving_below_moving", "aligned_frame",
           "moving_above_aligned"],
    1006: ["malloc", "allocate", "never_returns", "behind"],
    1007: ["malloc", "never_returns", "behind"],
}


class Frames(case.Case):
    def setUp(self):
        super().setUp()
        self.quarl = self.target.build.parent / "host" / "quarl"
        if not self.quarl.exists():
            raise unittest.SkipTest("quarl for the desk is not built")
        self.tables = self.directory / "tables"
        self.tables.mkdir()

    def system_folder(self):
        return Path("/lib32" if self.target.name == "i686" else f"/usr/{self.target.triplet}/lib")

    def make_tables(self, *victims):
        files = [self.target.victim(name) for name in victims]
        files += [self.system_folder() / name for name in ("libc.so.6", self.loader())]
        subprocess.run([self.quarl, "frames", *map(str, files), "-o", self.tables], check=True, stdout=subprocess.DEVNULL)

    def loader(self):
        return {"i686": "ld-linux.so.2", "armhf": "ld-linux-armhf.so.3", "armel": "ld-linux.so.3"}[self.target.name]

    def environment(self):
        return {"QUARL_FRAMES": str(self.tables)}

    def traces(self, process, program):
        """{size of a block: [function names of each trace]} of a process that has ended."""
        log = log_file.read_log(self.log_path(process, "quarlAll", program=program))
        found = {}
        for record in log.records:
            if record.kind == log_file.ALLOCATED:
                found.setdefault(record.size, []).append([self.name(log, address) for address in record.trace])
        return found

    def name(self, log, address):
        """Of a function; the kernel's code in the process has none."""
        in_file = log.module_of(address)[0].startswith("/")
        return symbols.function_of(self.target, log, address) if in_file else "kernel"

    def traces_of(self, victim):
        process = self.run_victim(victim, config=LOGGED, environment=self.environment())
        self.assert_ends(process, status=3)
        return self.traces(process, victim)

    def victims(self):
        return ["rules"] + ["rules_thumb"] * self.target.emulated

    @promise("With `QUARL_FRAMES` a trace goes by the rules of the tables in that folder, and by the frame pointer where "
             "there is no rule.")
    def test_frames_of_every_shape_are_left(self):
        for victim in self.victims():
            self.make_tables(victim)
            traces = self.traces_of(victim)
            for size, expected in SHAPES.items():
                with self.subTest(victim=victim, size=size):
                    self.assertIn([*expected, "main"], [trace[: len(expected) + 1] for trace in traces[size]])
            with self.subTest(victim=victim, what="through the C library"):
                [trace] = traces[1005]
                self.assertEqual((trace[:3], trace[-2:]), (["malloc", "allocate", "compare"], ["below_the_library", "main"]))
            with self.subTest(victim=victim, what="from the C library"):
                [trace] = traces[len("a text of just that length ----------------------------------------") + 1]
                self.assertEqual((trace[0], trace[-1], len(trace)), ("malloc", "main", 3))

    @promise("Such a trace passes the frame of a signal handler, and ends at the end of an alternate signal stack.")
    def test_signal_frames(self):
        for victim in self.victims():
            with self.subTest(victim):
                self.make_tables(victim)
                traces = self.traces_of(victim)
                [trace], [elsewhere] = traces[1008], traces[1009]
                self.assertEqual((trace[:3], trace[-3:]),
                                 (["malloc", "allocate", "handler"], ["interrupted", "signals", "main"]))
                self.assertEqual(elsewhere[:3], ["malloc", "allocate", "handler"])
                self.assertNotIn("interrupted", elsewhere)

    @promise("Such a trace passes the frame of a signal handler, and ends at the end of an alternate signal stack.")
    def test_signals_in_code_of_the_kernel(self):
        """The vdso where i386 has it, instruction by instruction; ARM's helpers; a system call that is begun again."""
        self.make_tables("kernel_code")
        traces = self.traces_of("kernel_code")
        inside = traces[2001]
        passed = [trace for trace in inside if trace[-2:] == ["interrupted", "main"]]
        for trace in inside:
            self.assertEqual(trace[:3], ["malloc", "allocate", "step"])
        if self.target.emulated:
            self.assertEqual([len(passed), len(inside)], [5, 5])
        else:  # ends in the first and last instructions of a function of the vdso, where its frame pointer is not its own
            self.assertGreater(len(inside), 40)
            self.assertGreater(len(passed), 0.8 * len(inside))
        [again] = traces[2002]
        self.assertEqual((again[:3], again[-2:]), (["malloc", "allocate", "begin_again"], ["waiting", "main"]))

    @promise("Rules die with their library: another one at its addresses has its own from its first call on.")
    def test_rules_die_with_their_library(self):
        libraries = [self.target.build / "victims" / f"libreopened_{room}.so" for room in (16, 400)]
        self.make_tables("driver", *(path.name for path in libraries))
        driver = self.driver(LOGGED, environment=self.environment())
        places = []
        for path in (*libraries, *libraries):
            handle = int(driver.dlopen(path))
            places.append(driver.do(f"dlsym {handle:#x} reopened_allocation"))
            driver.do(f"repeat 2 call {places[-1]:#x}")
            self.assertEqual(driver.dlclose(handle), 0)
        self.assert_ends(driver)
        if not self.target.emulated:  # the emulator gives other addresses
            self.assertEqual(len({place >> 12 for place in places}), 1, "the second library is to lie where the first was")
        self.assertGreater(len(set(places)), 1, "and is to be another")
        log = log_file.read_log(self.log_path(driver, "quarlAll"))
        traces = [record.trace for record in log.records if record.size == 4321 and record.kind == log_file.ALLOCATED]
        self.assertEqual(len(traces), 8)
        for trace, place in zip(traces, (place for place in places for _ in range(2))):
            self.assertEqual({address >> 12 for address in trace[1:3]}, {place >> 12})
            names = [symbols.function_of(self.target, log, address) for address in trace[3:]]
            self.assertEqual((names[0], names[-1]), ("do_call", "main"))

    def test_threads_make_nobody_look_for_libraries(self):
        """The loader makes room for their variables, and has loaded nothing: /proc/self/maps tells nothing new."""
        if not self.target.emulated:
            self.skipTest("the emulator tells the system calls")
        library = self.target.build / "victims" / "libreopened_16.so"
        self.make_tables("driver", library.name)
        looks = []
        with unittest.mock.patch.dict(os.environ, QEMU_STRACE="1"):
            for environment in ({}, self.environment()):
                driver = self.driver(LOGGED, environment=environment)
                handle = int(driver.dlopen(library))
                place = driver.do(f"dlsym {handle:#x} reopened_allocation")
                for _ in range(12):
                    driver.spawn().do(f"call {place:#x}")
                self.assertEqual(driver.finish(), 0)
                looks.append(driver.err.count('"/proc/self/maps"'))
        self.assertGreater(looks[0], 12)  # for their stacks
        self.assertLess(looks[1], looks[0] + 4)

    @promise("A damaged table is not used, and one line on standard error says so.")
    def test_damaged_tables_are_refused(self):
        self.make_tables("rules")
        for table in self.tables.iterdir():
            data = bytearray(table.read_bytes())
            data[len(data) // 2] ^= 1
            table.write_bytes(data)
        process = self.run_victim("rules", config=LOGGED, environment=self.environment())
        self.assertEqual(process.finish(), 3)
        self.assertEqual(sorted(process.err.splitlines()), sorted(
            f"unwind table {table} is damaged, it is not used" for table in self.tables.iterdir()))
        self.assertEqual(process.out, "")

    @promise("With `QUARL_FRAMES` a trace goes by the rules of the tables in that folder, and by the frame pointer where "
             "there is no rule.")
    def test_tables_that_are_made_anew_take_nothing_from_a_process(self):
        """The old ones stay as they are for whoever has them mapped."""
        self.make_tables("driver")
        def inodes():
            return {path.name: path.stat().st_ino for path in self.tables.iterdir()}
        first = inodes()
        driver = self.driver(LOGGED, environment=self.environment())
        driver.malloc(100)
        self.make_tables("driver")
        self.assertEqual(first.keys(), inodes().keys())
        self.assertEqual(set(first.values()) & set(inodes().values()), set())
        mapped = Path(f"/proc/{driver.pid}/maps").read_text().split()
        self.assertEqual({inode for inode in map(str, first.values()) if inode not in mapped}, set())
        driver.do("calloc 1 200")  # by rows that no walk has touched
        driver.do("memalign 64 300")
        self.assert_ends(driver)
        traces = self.traces(driver, "driver")
        for size in (100, 200, 300):
            self.assertEqual([trace[-1] for trace in traces[size]], ["main"])


if __name__ == "__main__":
    case.main()
