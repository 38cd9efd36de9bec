# SPDX-License-Identifier: Apache-2.0
"""scripts/check-layers refuses what breaks the layers, and nothing else."""

import importlib.machinery
import importlib.util
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "scripts" / "check-layers"
TABLE = "| 2.2 | `upper/high/` | x |\n| 2.1 | `upper/low/` | x |\n| 1 | `one/` | x |\n| 1 | `other/` | x |\n"


def load():
    loader = importlib.machinery.SourceFileLoader("check_layers", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_layers", loader))
    loader.exec_module(module)
    return module


class Layers(unittest.TestCase):
    def problems(self, files, table=TABLE):
        with tempfile.TemporaryDirectory() as folder:
            checker = load()
            checker.ROOT = Path(folder)
            for name, includes in {"upper/high/a.h": "", "upper/low/b.h": "", "one/c.h": "", "other/d.h": "", **files}.items():
                path = Path(folder, "house", name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text("".join(f'#include "{included}"\n' for included in includes.split()))
            Path(folder, "house", "README.md").write_text(table)
            return list(checker.problems("house"))

    def test_down_and_sideways_in_the_own_folder(self):
        self.assertEqual(self.problems({"upper/high/x.cpp": "upper/high/a.h upper/low/b.h one/c.h other/d.h",
                                        "upper/low/y.cpp": "one/c.h", "one/z.cpp": "one/c.h"}), [])

    def test_what_goes_up_or_across(self):
        for name, included in (("upper/low/x.cpp", "upper/high/a.h"), ("one/x.cpp", "upper/low/b.h"),
                               ("one/x.cpp", "other/d.h")):
            with self.subTest(name, included=included):
                [problem] = self.problems({name: included})
                self.assertIn(f"{name} (layer of", problem)
                self.assertIn(included, problem)

    def test_circles_and_strangers(self):
        [circle] = self.problems({"one/c.h": "one/e.h", "one/e.h": "one/c.h"})
        self.assertIn("one/c.h -> one/e.h -> one/c.h", circle)
        [stranger] = self.problems({"new/x.cpp": ""})
        self.assertIn("new/x.cpp: this folder has no layer", stranger)
        [nowhere] = self.problems({"one/x.cpp": "one/gone.h"})
        self.assertIn("one/gone.h, which is nowhere", nowhere)
        [row] = self.problems({}, TABLE + "| 3 | `gone/` | x |\n")
        self.assertIn("gone is not there", row)


if __name__ == "__main__":
    unittest.main()
