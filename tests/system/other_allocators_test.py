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

ALLOCATORS = ("libtcmalloc_minimal.so.4", "libjemalloc.so.2", "libmimalloc.so.2")


class OtherAllocators(case.Case):
    @promise("A program with an allocator of its own, in front of the checker or behind it, runs as it does without.")
    def test_real_allocators_on_both_sides(self):
        """By `operator delete`, blocks that they made by themselves come back to our free."""
        tree = sysroot.sysroot("i686")
        if self.target.name != "i686" or not tree.exists():
            self.skipTest("the allocators are fetched for i686 only (scripts/fetch-programs i386)")
        for name in ALLOCATORS:
            other = tree / "usr/lib/i386-linux-gnu" / name
            self.assertTrue(other.exists(), other)
            for preload in ([self.target.library, other], [other, self.target.library]):
                with self.subTest(preload=[path.name for path in map(Path, preload)]):
                    self.assertEqual(self.run_with(tree, preload), (0, b"10000\n", b""))

    def run_with(self, tree, preload):
        libraries = [tree / "lib/i386-linux-gnu", tree / "usr/lib/i386-linux-gnu", "/usr/i686-linux-gnu/lib"]
        line = [tree / "lib/ld-linux.so.2", "--library-path", ":".join(map(str, libraries)), "--preload",
                ":".join(map(str, preload)), self.target.victim("cxx_blocks")]
        done = subprocess.run(line, cwd=self.directory, capture_output=True, timeout=100, env=dict(os.environ))
        return done.returncode, done.stdout, done.stderr


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
