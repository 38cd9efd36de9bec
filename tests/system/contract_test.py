# SPDX-License-Identifier: Apache-2.0
"""glibc's promises under QUARL_CONTRACT=libc, and programs that were written for them: the same output and status under
the checker as without it."""

import itertools
import signal
import sys
import unittest
from pathlib import Path

import case
from promise import promise

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
import sysroot

LINES = "".join(f"line {i} of {i % 7} words, {'x' * (i % 40)}\n" for i in range(3000))

COMMANDS = (
    ("grep", "-nE", "(4|5) of [0-3]|x{39}", "lines"),
    ("sed", "-E", "s/line ([0-9]+)/\\1 line/; 5,40d; /x{20}/!s/$/ end/", "lines"),
    ("diff", "-u", "lines", "fewer"),
    ("gawk", "{ sum[$4] += $2 } END { for (i = 0; i < 7; i++) print i, sum[i] }", "lines"),
    ("m4", "-P", "-Dwords=WORDS", "lines"),
    ("flex", "--help"),
    ("bison", "--version"),
    ("xz", "-k", "-c", "lines"),
)


ENOMEM, EINVAL = 12, 22
LIBC = {"QUARL_CONTRACT": "libc"}

# Every part of a header there or not, and traces of several lengths: all distances from a raw block to its user.
HEADERS = ["QUARL_ALL=0", "QUARL_MEM_HEAD=0", "QUARL_PROF=0", "QUARL_SLOPOVER_MALLOC=1 QUARL_SLOPOVER_FREE=1"] + [
    f"QUARL_HEAD_TID={tid} QUARL_HEAD_TIME={time} QUARL_HEAD_STACKDEPTH={depth} QUARL_SLOPOVER={guard}"
    for tid, time, depth, guard in itertools.product((0, 1), (0, 1), (0, 2, 3, 64), (0, 1))]


class Alignment(case.Case):
    @promise("With `QUARL_CONTRACT=libc`, which `quarl run` sets, a request of 0 bytes gets a block, blocks are aligned as "
             "glibc aligns them, and a failure sets `ENOMEM`.")
    def test_vectors_in_blocks_of_every_origin(self):
        bare = self.run_victim("vectors", preload=False)
        self.assertEqual(bare.finish(), 0)
        for config in HEADERS[::6 if self.target.emulated else 1]:
            with self.subTest(config):
                self.assert_ends(self.run_victim("vectors", config=config, environment=LIBC), bare.out)

    def test_the_victim_does_meet_it(self):
        if self.target.name != "i686":
            self.skipTest("only there glibc aligns to more than the hooks")
        self.assertEqual(self.run_victim("vectors", environment={"QUARL_CONTRACT": "plain"}).finish(), -signal.SIGSEGV)

    def test_blocks_resized_under_another_configuration(self):
        """The header changes its length while blocks live."""
        alignment = 8 if self.target.emulated else 16
        driver = self.driver("QUARL_HEAD_TID=0 QUARL_HEAD_STACKDEPTH=0", environment=LIBC)
        sizes = (1, 17, 100, 3000, 200000)
        blocks = [driver.malloc(size) for size in sizes]
        for config in ("QUARL_HEAD_TID=1 QUARL_HEAD_STACKDEPTH=3", "QUARL_HEAD_TIME=0 QUARL_HEAD_TID=0", "QUARL_MEM_HEAD=0"):
            self.configure(config)
            driver.do(f"raise {signal.SIGUSR1}")
            blocks = [driver.realloc(block, size) for block, size in zip(blocks, reversed(sizes))]
            blocks = [driver.realloc(block, size) for block, size in zip(blocks, sizes)]
            self.assertEqual({block % alignment for block in blocks}, {0}, config)
        for block in blocks:
            driver.free(block)
        self.assert_ends(driver)


class Answers(case.Case):
    """Return values and errno of the public entries, against the bare C library's."""

    COMMANDS = ("malloc 0x80000000", "malloc 0xffffffff", "calloc 0x10000 0x10000", "calloc 3 0x70000000",
                "realloc 0 0x80000000", "reallocarray 0 0x10000 0x10000", "reallocarray 0 0x40000000 3",
                "memalign 64 0xffffffc0", "aligned_alloc 16 0xfffffff0", "posix_memalign 3 8", "posix_memalign 2 8",
                "posix_memalign 0 8", "posix_memalign 12 8", "posix_memalign 64 0xfffffff0", "valloc 0xfffff000",
                "pvalloc 0xfffff001", "pvalloc 0xffffffff", "usable_size 0")
    ALIGNED = ("aligned_alloc 24 8", "aligned_alloc 0 8", "aligned_alloc 100 8")  # as memalign before 2.38

    def driver_with(self, checked, config=""):
        return self.driver(config, **({"environment": LIBC} if checked else {"preload": False}))

    def outcomes(self, driver):
        """Of failing calls (what was answered, errno); of others whether there is a block."""
        return [(command, int(answer), answer.number) for command in self.COMMANDS for answer in [driver.do(command)]]

    def test_failures_are_those_of_the_bare_library(self):
        bare_driver = self.driver_with(False)
        bare = self.outcomes(bare_driver)
        self.assertEqual({number for _, _, number in bare}, {0, ENOMEM, EINVAL})
        for config in ("", "QUARL_PROF=0", "QUARL_MEM_HEAD=0", "QUARL_ALL=0"):
            with self.subTest(config):
                driver = self.driver_with(True, config)
                self.assertEqual(self.outcomes(driver), bare)
                served = [command for command in self.ALIGNED if driver.do(command) != 0]
                self.assertEqual(served, [command for command in self.ALIGNED if bare_driver.do(command) != 0])
                self.assert_ends(driver)

    def test_blocks_survive_failures_and_end_by_zero(self):
        for checked in (False, True):
            driver = self.driver_with(checked)
            block = driver.malloc(100)
            driver.fill(block, 0x5A, 100)
            for command in ("realloc {} 0x80000000", "reallocarray {} 0x10000 0x10000", "reallocarray {} 0x90000000 1"):
                answer = driver.do(command.format(block))
                self.assertEqual((answer, answer.number), (0, ENOMEM), command)
            self.assertEqual(driver.holds(block, 0x5A, 100), 1)
            for command in ("realloc {} 0", "reallocarray {} 0 7"):
                answer = driver.do(command.format(driver.malloc(100)))
                self.assertEqual((answer, answer.number), (0, 0), command)
            for command in ("malloc 0", "calloc 0 9", "realloc 0 0", "memalign 64 0", "posix_memalign 8 0", "pvalloc 0",
                            "valloc 0", "memalign 0 10", "aligned_alloc 8 0"):
                block = driver.do(command)
                self.assertNotEqual(block, 0, command)
                driver.fill(block, 0, driver.usable_size(block))
                driver.free(block)
            self.assertEqual(driver.finish(), 0, driver.out + driver.err)

    def test_injected_failures_set_errno(self):
        for config in ("", "QUARL_MEM_HEAD=0"):
            driver = self.driver(f"QUARL_RANDOM_FAIL=1 {config}", environment=LIBC)
            commands = ("malloc 10", "malloc 0", "calloc 2 5", "realloc 0 10", "reallocarray 0 2 5", "memalign 64 10",
                        "aligned_alloc 16 10", "posix_memalign 16 10", "valloc 10", "pvalloc 10")
            failed = dict.fromkeys(commands, 0)
            for command in commands * 120:
                answer = driver.do(command)
                if answer == 0:
                    self.assertEqual(answer.number, ENOMEM, command)
                    failed[command] += 1
            self.assertTrue(all(failed.values()), failed)
            self.assert_ends(driver)


class Contract(case.Case):
    def setUp(self):
        super().setUp()
        if not sysroot.debian_program(self.target.name, "flex").exists():
            self.skipTest("no programs are fetched for this target (scripts/fetch-programs)")
        (self.directory / "lines").write_text(LINES)
        (self.directory / "fewer").write_text(LINES.replace("of 3 words", "of three"))

    def run_program(self, name, *arguments, preload=False, contract=None):
        done = sysroot.run(self.target.name, sysroot.debian_program(self.target.name, name), *arguments, cwd=self.directory,
                           timeout=100, preload=[self.target.library] if preload else [],
                           environment={"QUARL_CONTRACT": contract} if contract else {})
        return done.returncode, done.stdout, done.stderr

    def test_programs_do_what_they_do_bare(self):
        for config in ("", "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_FREE=0"):
            self.configure(config)
            for name, *arguments in COMMANDS:
                with self.subTest(name, config=config):
                    bare = self.run_program(name, *arguments)
                    self.assertTrue(bare[1], bare)
                    self.assertEqual(self.run_program(name, *arguments, preload=True, contract="libc"), bare)

    def test_the_plain_contract_is_the_hooks_own(self):
        """The programs above do meet it: without glibc's promises this one gives up."""
        status, _, error = self.run_program("grep", "-nE", "(4|5) of", "lines", preload=True)
        self.assertEqual((status, error.count(b"memory exhausted")), (2, 1))


if __name__ == "__main__":
    unittest.main()
