"""Programs that were written for glibc's promises: the same output and status under the checker as without it."""

import os
import subprocess
import sys
import unittest
from pathlib import Path

import case

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


class Contract(case.Case):
    def setUp(self):
        super().setUp()
        self.tree = sysroot.sysroot("i686")
        if self.target.name != "i686" or not self.tree.exists():
            self.skipTest("the programs are fetched for i686 only (scripts/fetch-programs i386)")
        (self.directory / "lines").write_text(LINES)
        (self.directory / "fewer").write_text(LINES.replace("of 3 words", "of three"))

    def run_program(self, name, *arguments, preload=False, contract=None):
        libraries = [self.tree / "lib/i386-linux-gnu", self.tree / "usr/lib/i386-linux-gnu"]
        program = next(path for path in (self.tree / "bin" / name, self.tree / "usr/bin" / name) if path.exists())
        line = [self.tree / "lib/ld-linux.so.2", "--library-path", ":".join(map(str, libraries)),
                *(["--preload", self.target.library] if preload else []), program, *arguments]
        environment = {**os.environ, **({"QUARL_CONTRACT": contract} if contract else {})}
        done = subprocess.run(line, cwd=self.directory, capture_output=True, timeout=100, env=environment)
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
