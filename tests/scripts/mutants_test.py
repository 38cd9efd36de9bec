# SPDX-License-Identifier: Apache-2.0
"""Which mutants scripts/mutate makes of a line, and that each differs in that line alone."""

import unittest

from mutants import mutants

CASES = {
    "  if (a < b && c) return;": ["  if (a <= b && c) return;", "  if (a < b || c) return;", "  if (!(a < b && c)) return;",
                                  "  if (a < b && c) {}"],
    "  count += step(7) - x.y;": ["  count -= step(7) - x.y;", "  count += step(7) + x.y;", "  count += step(8) - x.y;", "  {}"],
    '  print("a < 1", \'2\');  // 3': ['  {}  // 3'],
    "  return true;": ["  return false;"],
    "  return held + 0x10U;": ["  return held - 0x10U;", "  return held + 17U;", "  return {};"],
    "  ++table->used;": ["  --table->used;", "  {}"],
    "  open(path, 0666);": ["  open(path, 0667);", "  {}"],
    "  while (next(&line)) {": ["  while (!(next(&line))) {"],
    "  const int a = b;": [],
    "#include <a>  // 1 < 2": [],
    "  std::vector<int> one1;": [],
    "static_assert(sizeof(A) == 4);": [],
}


class Mutants(unittest.TestCase):
    def test_mutants_of_a_line(self):
        for line, expected in CASES.items():
            with self.subTest(line):
                text = f"first;\n{line}\nlast();"
                made = list(mutants(text, 2, 2))
                self.assertEqual(sorted(mutant.after for mutant in made), sorted(expected))
                self.assertEqual({mutant.apply(text) for mutant in made}, {f"first;\n{after}\nlast();" for after in expected})

    def test_lines_are_chosen(self):
        text = "a();\nb();\nc();\n"
        self.assertEqual([mutant.line for mutant in mutants(text)], [1, 2, 3])
        self.assertEqual([mutant.line for mutant in mutants(text, 2)], [2, 3])
        self.assertEqual([mutant.line for mutant in mutants(text, 2, 2)], [2])


if __name__ == "__main__":
    unittest.main()
