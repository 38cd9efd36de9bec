# SPDX-License-Identifier: Apache-2.0
"""Real files of Debian: what the code shows against what unwind information says, how much is covered, how large it is.
The floors lie a little below what was measured."""

import unittest

from tables import SYSROOT, TablesTest

LIBRARIES = {
    "i386": ("lib/i386-linux-gnu/libc.so.6", "usr/lib/i386-linux-gnu/libstdc++.so.6", "lib/ld-linux.so.2"),
    "armhf": ("lib/arm-linux-gnueabihf/libc.so.6", "usr/lib/arm-linux-gnueabihf/libstdc++.so.6", "lib/ld-linux-armhf.so.3"),
}
# Of the calls for which both know a rule, the share at which they say the same; and how many calls those are at least.
FLOORS = {
    ("i386", "libc.so.6", "eh_frame"): (0.995, 15000),
    ("i386", "libstdc++.so.6", "eh_frame"): (0.99, 18000),
    ("i386", "ld-linux.so.2", "eh_frame"): (0.995, 1400),
    ("armhf", "libc.so.6", "debug_frame"): (0.999, 14500),
    ("armhf", "libc.so.6", "exidx"): (0.995, 4000),
    ("armhf", "libstdc++.so.6", "exidx"): (0.995, 13500),
    ("armhf", "ld-linux-armhf.so.3", "debug_frame"): (0.999, 1300),
}


class Agreement(TablesTest):
    def files_of(self, target, *options):
        root = SYSROOT / target
        paths = [root / name for name in LIBRARIES[target]]
        if not all(path.exists() for path in paths):
            self.skipTest(f"no programs of {target}: scripts/fetch-programs")
        answer = self.answer(*options, *paths)["files"]
        return {path.name: next(each for each in answer if each["path"] == str(path)) for path in paths}

    def test_derived_rules_are_those_of_unwind_information(self):
        for target in LIBRARIES:
            files = self.files_of(target, "--compare", "--sysroot", SYSROOT / target)
            for (of, name, source), (share, least) in FLOORS.items():
                if of != target:
                    continue
                with self.subTest(target=target, name=name, source=source):
                    found = files[name]["agreement"][source]
                    both = found["same"] + found["different"]
                    self.assertGreaterEqual(both, least)
                    self.assertGreaterEqual(found["same"] / both, share, found["differences"][:20])

    def test_tables_cover_the_calls_and_are_small(self):
        for target in LIBRARIES:
            for options in (("--debug-dir", self.folder), ("--sysroot", SYSROOT / target)):
                with self.subTest(target=target, options=options):
                    files = self.files_of(target, *options)
                    for name, file in files.items():
                        self.assertGreaterEqual(file["coverage"]["covered"] / file["coverage"]["calls"], 0.99, name)
                        self.assertTrue(self.table_of(file).sound)
                    self.assertLessEqual(files["libc.so.6"]["bytes"] + files["libstdc++.so.6"]["bytes"], 150 * 1024)

    def test_programs_without_any_unwind_information_are_covered(self):
        root = SYSROOT / "armhf/usr/bin"
        programs = [root / name for name in ("gawk", "sqlite3", "flex", "diff") if (root / name).exists()]
        if not programs:
            self.skipTest("no programs of armhf: scripts/fetch-programs")
        total = self.answer("--debug-dir", self.folder, *programs)["total"]
        self.assertGreaterEqual(total["by"]["derived"] / total["calls"], 0.97)


if __name__ == "__main__":
    unittest.main()
