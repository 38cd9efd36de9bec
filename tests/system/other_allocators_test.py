# SPDX-License-Identifier: Apache-2.0
"""Allocators beside the checker's, and pointers that are nobody's."""

import os
import subprocess
import sys
import unittest
from pathlib import Path

import case
from promise import promise

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
import sysroot

# The last is the C library's own, whose malloc and free carry a version that only old programs are linked with.
ALLOCATORS = ("libtcmalloc_minimal.so.4", "libjemalloc.so.2", "libmimalloc.so.2", "libc_malloc_debug.so.0")


class OtherAllocators(case.Case):
    @promise("A program with an allocator of its own, in front of the checker or behind it, runs as it does without.")
    def test_real_allocators_on_both_sides(self):
        """By `operator delete`, blocks that they made by themselves come back to our free."""
        tree = sysroot.sysroot(self.target.name)
        if not tree.exists():
            self.skipTest("no allocators are fetched for this target (scripts/fetch-programs)")
        for name in ALLOCATORS:
            other = next(tree.glob(f"**/lib/{sysroot.TRIPLET[self.target.name]}/{name}"))
            for preload in ([self.target.library, other], [other, self.target.library]):
                with self.subTest(preload=[path.name for path in map(Path, preload)]):
                    self.assertEqual(self.run_with(tree, "cxx_blocks", preload), (0, b"10000\n", b""))
                    self.assertEqual(self.run_with(tree, "state", preload, QUARL_ONLY="others"),
                                     self.run_with(tree, "state", [other]))

    def run_with(self, tree, victim, preload, **environment):
        line = self.bare_line(tree) + [":".join(map(str, preload)), self.target.victim(victim)]
        done = subprocess.run(line, cwd=self.directory, capture_output=True, timeout=100, env={**os.environ, **environment})
        return done.returncode, done.stdout, done.stderr

    def bare_line(self, tree):
        """The words before a list of libraries and a program, which then runs with them."""
        if self.target.emulated:
            return ["qemu-arm", "-L", str(tree), str(tree / "lib/ld-linux-armhf.so.3"), "--preload"]
        libraries = [tree / "lib/i386-linux-gnu", tree / "usr/lib/i386-linux-gnu", "/usr/i686-linux-gnu/lib"]
        return [str(tree / "lib/ld-linux.so.2"), "--library-path", ":".join(map(str, libraries)), "--preload"]


class AllocatorsOfPrograms(case.Case):
    """Small ones of the tests' own, on every target, linked into the program or a library, or preloaded."""

    LINKED = ("work_with_own", "work_with_own_behind", "work_with_pair", "work_with_wrapper", "work_with_counting_free",
              "work_with_dropping_free")
    NOISY = "QUARL_SLOPOVER_MALLOC=1 QUARL_SLOPOVER_FREE=1 QUARL_OUTPUT_LOG=1"

    def libraries(self, name):
        """The checker and an allocator in both orders, as a value of LD_PRELOAD."""
        pair = [str(self.target.library), str(self.target.victim(name))]
        return [":".join(pair), ":".join(reversed(pair))]

    def run_preloaded(self, libraries, *arguments, **environment):
        return self.run_victim("work", *arguments, preload=False, environment={"LD_PRELOAD": libraries, **environment})

    @promise("A program with an allocator of its own, in front of the checker or behind it, runs as it does without.")
    def test_no_block_is_accused(self):
        for contract in ("plain", "libc"):
            for config in ("", self.NOISY):
                self.configure(config)
                for name in self.LINKED:
                    with self.subTest(name, contract=contract, config=config):
                        self.assert_ends(self.run_victim(name, environment={"QUARL_CONTRACT": contract}), "done\n")
                for libraries in self.libraries("libown.so") + self.libraries("libwrapper.so"):
                    with self.subTest(libraries, contract=contract, config=config):
                        self.assert_ends(self.run_preloaded(libraries, QUARL_CONTRACT=contract), "done\n")

    def test_blocks_that_reach_the_checker_are_checked(self):
        reached = [self.run_victim("work_with_wrapper", "overrun"), self.run_victim("work_with_own_behind", "overrun")]
        reached += [self.run_preloaded(libraries, "overrun") for libraries in self.libraries("libwrapper.so")]
        for process in reached:
            process.await_match("slop over at tail")
            process.kill()
        past = [self.run_victim(name, "overrun") for name in ("work_with_own", "work_with_pair", "work_with_counting_free")]
        for process in past:
            self.assert_ends(process, "done\n")

    def test_left_alone(self):
        for name in ("libown.so", "libwrapper.so"):
            for libraries in self.libraries(name):
                with self.subTest(libraries):
                    self.assert_ends(self.run_preloaded(libraries, "overrun", QUARL_ONLY="others"), "done\n")
        self.assertEqual(self.files(), [])


class StrayPointers(case.Case):
    @promise("A pointer that is no block goes to the allocator, whose own check ends the program.")
    def test_stray_pointers_end_as_without_the_checker(self):
        for call in ("free", "realloc"):
            for below in ("0x2000002", "0x7fffffff", "0x13", "0"):
                with self.subTest(call, below=below):
                    ends = []
                    for preload in (False, True):
                        process = self.run_victim("stray_release", call, below, preload=preload)
                        ends.append((process.finish(), process.out, process.err.split("qemu")[0]))
                    self.assertEqual(ends[0], ends[1])
                    self.assertEqual(ends[1][0], -6)


if __name__ == "__main__":
    unittest.main()
