# SPDX-License-Identifier: Apache-2.0
"""Every sentence of docs/safety.md is carried by a test that runs, and no test carries words that are not there."""

import ast
import re
import unittest
from pathlib import Path

TESTS = Path(__file__).resolve().parent.parent
DOCUMENT = TESTS.parent / "docs" / "safety.md"


def sentences(text):
    """The sentences of a document but for headings and what is quoted, which promises nothing."""
    found = []
    for paragraph in re.split(r"\n\s*\n|\n(?=[-#>])", text):
        if not paragraph.lstrip().startswith(("#", ">")):
            words = " ".join(paragraph.removeprefix("- ").split())
            found += re.split(r"(?<=[.!?]) (?=[A-Z`])", words)
    return [sentence for sentence in found if sentence]


def carried(path):
    """(test, sentence) of every promise decorator in a file; the test must be one that the file runs."""
    for group in ast.parse(path.read_text()).body:
        for node in ast.walk(group):
            for decorator in getattr(node, "decorator_list", []):
                if isinstance(decorator, ast.Call) and getattr(decorator.func, "id", "") == "promise":
                    runs = isinstance(group, ast.ClassDef) and group.bases and node in group.body
                    assert runs and node.name.startswith("test_"), f"{path.name}: {node.name} is no test"
                    for argument in decorator.args:
                        yield f"{path.name}: {node.name}", ast.literal_eval(argument)


class Promises(unittest.TestCase):
    maxDiff = None

    def test_every_sentence_has_its_test(self):
        promised = sentences(DOCUMENT.read_text())
        self.assertGreater(len(promised), 30)
        tests = [pair for path in sorted(TESTS.glob("*/*_test.py")) for pair in carried(path)]
        proved = {sentence for _, sentence in tests}
        self.assertEqual([sentence for sentence in promised if sentence not in proved], [], "carried by no test")
        self.assertEqual([pair for pair in tests if pair[1] not in promised], [], "not in the document")

    def test_sentences_are_told_apart(self):
        text = ("# Title\n\n> Not this. Nor this.\n\nOne is `here`. Two (a few.\nthree, i.e. more)\nends. `Four` too: it is\n"
                "long.\n\n- Five.\n- Six; seven. Eight!\n> Quoted\n")
        self.assertEqual(sentences(text), ["One is `here`.", "Two (a few. three, i.e. more) ends.", "`Four` too: it is long.",
                                           "Five.", "Six; seven.", "Eight!"])


if __name__ == "__main__":
    unittest.main()
