# SPDX-License-Identifier: Apache-2.0
"""quarl run: tables are made for the program and for what it loads, once, where the user's caches are."""

import concurrent.futures
import os
import subprocess
import unittest
from pathlib import Path

from tables import BUILD, DEADLINE, TOOL, Table, TablesTest

PROGRAM = '#include <stdio.h>\n#include <stdlib.h>\nint main(void) { puts(getenv("QUARL_FRAMES") ?: "none"); return 0; }\n'
LIBRARY = "#include <stdlib.h>\nvoid *give(void) { return malloc(77); }\n"
LOADER = """#include <dlfcn.h>
#include <stdio.h>
int main(void) { return ((void *(*)(void))dlsym(dlopen("LIBRARY", RTLD_NOW), "give"))() == 0 || puts("gave") < 0; }
"""


class Cache(TablesTest):
    def run_program(self, target, *options, **variables):
        if not (BUILD / target / "libquarl.so").exists():
            self.skipTest(f"libquarl.so for {target} is not built")
        program = self.folder / f"program_{target}"
        if not program.exists():
            self.compiled(target, PROGRAM)
        environment = {name: value for name, value in os.environ.items() if not name.startswith(("QUARL_", "LD_"))}
        environment |= {"XDG_CACHE_HOME": str(self.folder / "cache"), "XDG_STATE_HOME": str(self.folder / "state"), **variables}
        done = subprocess.run([TOOL, "run", *options, "--", program], capture_output=True, text=True, timeout=DEADLINE,
                              env=environment, check=False, cwd=self.folder)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.said = done.stderr
        return done.stdout.strip()

    def test_tables_are_made_once(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                folder = self.folder / "cache/quarl/frames-1"
                self.assertEqual(self.run_program(target), str(folder))
                tables = {path: path.stat().st_mtime_ns for path in folder.iterdir()}
                names = [os.path.basename(Table(path).path) for path in tables]
                for name in (f"program_{target}", "libquarl.so", "libc.so.6", "libgcc_s.so.1"):
                    self.assertIn(name, names)
                self.assertTrue(all(Table(path).sound for path in tables))
                self.assertEqual(self.run_program(target), str(folder))
                self.assertEqual({path: path.stat().st_mtime_ns for path in folder.iterdir()}, tables)

    def test_runs_at_once_make_whole_tables(self):
        self.compiled("i686", PROGRAM)
        with concurrent.futures.ThreadPoolExecutor(4) as runs:
            folders = list(runs.map(lambda _: self.run_program("i686"), range(4)))
        [folder] = set(folders)
        tables = list(Path(folder).iterdir())
        self.assertGreaterEqual(len(tables), 3)
        self.assertEqual([path.suffix for path in tables if not Table(path).sound or path.suffix != ".frames"], [])

    def test_a_library_that_came_later_has_rules_the_next_time(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                library = self.compiled(target, LIBRARY, "-shared", "-fPIC", name="late")
                self.compiled(target, LOADER.replace("LIBRARY", str(library)))
                said = [self.run_program(target) and self.said for _ in range(2)]
                self.assertIn("quarl: a library that was loaded on the way had no unwind rules", said[0])
                self.assertNotIn("unwind rules", said[1])
                tables = [Table(path) for path in (self.folder / "cache/quarl/frames-1").iterdir()]
                self.assertIn(library.name, [os.path.basename(table.path) for table in tables])

    def test_the_user_decides(self):
        self.assertEqual(self.run_program("i686", "--no-frames"), "none")
        self.assertFalse((self.folder / "cache").exists())
        self.assertEqual(self.run_program("i686", QUARL_FRAMES="/own"), "/own")
        self.assertFalse((self.folder / "cache").exists())
        # Where no cache can be made the program runs all the same.
        (self.folder / "cache").touch()
        self.assertEqual(self.run_program("i686"), "none")


if __name__ == "__main__":
    unittest.main()
