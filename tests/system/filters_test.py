# SPDX-License-Identifier: Apache-2.0
"""Programs that set themselves a filter of system calls: they end as without the checker, and their logs tell what was before."""

import signal
import unittest

import case
import target
from log_file import read_log
from promise import promise

WAYS = ("prctl", "syscall", "by-number", "every-thread")
ACTIONS = ("sound", "thread", "fork")


@unittest.skipIf(target.current().emulated, "the emulator knows no filters")
class Filters(case.Case):
    def program(self, way, action="sound", **options):
        return self.run_victim("filtered", way, action, **options)

    def live(self, process, path):
        """The blocks of 10 and 20 bytes in a log."""
        before = process.said("before")[0]
        return [(record.size, record.address == before) for record in read_log(path).records if record.size in (10, 20)]

    @promise("A filter of system calls (seccomp) that the program sets itself through `prctl` or `syscall` does not end it "
             "for what the checker does.",
             "Behind it blocks are checked on, but no thread makes a system call of the checker's, save those by which every "
             "allocator gets memory and waits (`brk`, `mmap`, `munmap`, `futex`).")
    def test_programs_end_as_without_the_checker(self):
        for way in WAYS:
            for action in ACTIONS:
                self.assert_ends(self.program(way, action, preload=False))
                for config in ("", "QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=280 QUARL_THREAD=1", "QUARL_SLOPOVER_MALLOC=1 QUARL_HEAD_STACKDEPTH=64"):
                    for contract in ("plain", "libc"):
                        with self.subTest(way, action=action, config=config, contract=contract):
                            self.assert_ends(self.program(way, action, config=config, environment={"QUARL_CONTRACT": contract}))

    @promise("A filter of system calls (seccomp) that the program sets itself through `prctl` or `syscall` does not end it "
             "for what the checker does.")
    def test_strict_mode(self):
        """Not even the heap can grow then."""
        for way in ("strict", "strict-syscall"):
            for config in ("", "QUARL_OUTPUT_LOG=1"):
                for preload in (False, True):
                    process = self.program(way, config=config, preload=preload)
                    self.assert_ends(process)
                    process.said("done")
            self.assertEqual(self.live(process, self.log_path(process, "quarlAll", program="filtered")), [(10, True)])

    @promise("The logs are written before it is set, as at exit, and hold what was there by then.")
    def test_logs_hold_what_was_before(self):
        for config, kind in (("", "quarl"), ("QUARL_OUTPUT_LOG=1", "quarlAll")):
            for way in WAYS[:-1]:
                process = self.program(way, config=config)
                process.said("done")
                self.assert_ends(process)
                path = self.log_path(process, kind, program="filtered")
                self.assertEqual(self.live(process, path), [(10, True)])
                self.assertEqual(read_log(path).stats.counts()["malloc"], (1, 0, 10))

    def test_signals_and_ticks_write_nothing(self):
        """Neither the dump nor the timer's tick does, nor the reload that the dump asks for."""
        clock = "QUARL_TIMER_SIG=SIGUSR2 QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1 QUARL_SNAP_INTERVAL=1"
        process = self.program("prctl", config=clock)
        process.said("done")
        self.configure("QUARL_OUTPUT_LOG=1")
        for number in (signal.SIGUSR1, signal.SIGUSR2):
            process.signal(number)
        self.assert_ends(process)
        self.assertEqual(len(self.files()), 2)
        self.assert_ends(self.program("prctl", "dumped", config=""))  # with the reload still to come

    @promise("A filter that cannot be set changes nothing.")
    def test_filter_that_cannot_be_set(self):
        for config, kind in (("", "quarl"), ("QUARL_OUTPUT_LOG=1", "quarlAll")):
            process = self.program("refused", config=config)
            process.said("done")
            process.signal(signal.SIGUSR1)
            self.assert_ends(process)
            path = self.log_path(process, kind, program="filtered")
            self.assertEqual(self.live(process, path), [(10, True), (20, False)])

    @promise("A fault is reported all the same; how its thread stops is for the filter to say.",
             "Behind it blocks are checked on, but no thread makes a system call of the checker's, save those by which every "
             "allocator gets memory and waits (`brk`, `mmap`, `munmap`, `futex`).")
    def test_fault_is_reported(self):
        process = self.program("prctl", "overrun", config="")
        process.await_match("slop over occurs at tail .*start_addr")
        self.assertEqual(process.finish(), -signal.SIGSYS)


if __name__ == "__main__":
    case.main()
