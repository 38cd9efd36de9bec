# SPDX-License-Identifier: Apache-2.0
"""Mutants of a C++ source file: copies with one line changed in one small way, as a slip of a programmer would.

It works on the text of lines, not on a parse of them: whatever does not compile is found out by the compiler.
"""

import re
from dataclasses import dataclass


@dataclass(frozen=True)
class Mutant:
    line: int  # from 1
    before: str
    after: str
    what: str

    def apply(self, text):
        lines = text.split("\n")
        assert lines[self.line - 1] == self.before
        lines[self.line - 1] = self.after
        return "\n".join(lines)


SWAPS = [(" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "), (" == ", " != "), (" != ", " == "),
         (" && ", " || "), (" || ", " && "), (" + ", " - "), (" - ", " + "), (" += ", " -= "), (" -= ", " += "),
         ("++", "--"), ("--", "++"), (" & ", " | "), (" | ", " & ")]
WORDS = {"true": "false", "false": "true"}
NUMBER = re.compile(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)(?![\w.'])")
STATEMENT = re.compile(  # a call, an assignment, a step or a bare return: alone on its line or behind a condition
    r"(?:[\w:.>*\[\]()-]*[\w\])]\(.*\)|[\w:.>*\[\]()-]+ (?:[-+|&*/^]|<<|>>)?= .*|(?:\+\+|--)[\w:.>-]+|return);$")
NO_STATEMENT = re.compile(r"(?:return(?!;)|case|static_assert|using|namespace|template|constexpr|const|static)\b.")


def masked(line):
    """The line with blanks for what is in strings, characters and comments, so that places stay the same."""
    blank = lambda match: match[0][0] + " " * (len(match[0]) - 2) + match[0][-1]
    line = re.sub(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])\'', blank, line)
    return re.sub(r"//.*", lambda match: " " * len(match[0]), line)


def condition_end(code, start):
    """The place of the bracket that closes the one at start; -1 when it is on another line."""
    depth = 0
    for place in range(start, len(code)):
        depth += {"(": 1, ")": -1}.get(code[place], 0)
        if depth == 0:
            return place
    return -1


def replacements(line):
    """(start, end, new text, what) of every change of a line."""
    code = masked(line)
    for old, new in SWAPS:
        for match in re.finditer(re.escape(old), code):
            yield match.start(), match.end(), new, f"{old.strip()} becomes {new.strip()}"
    for match in re.finditer(r"\b(true|false)\b", code):
        yield match.start(), match.end(), WORDS[match[1]], f"{match[1]} becomes {WORDS[match[1]]}"
    for match in NUMBER.finditer(code):
        octal = match[1][0] == "0" and match[1].isdigit()
        more = f"{int(match[1], 8) + 1:#o}".replace("o", "") if octal and len(match[1]) > 1 else f"{int(match[1], 0) + 1}{match[2]}"
        yield match.start(), match.end(), more, f"{match[0]} becomes {more}"
    statement = len(code) - len(code.lstrip())
    for match in re.finditer(r"\b(?:if|while) \(", code):
        end = condition_end(code, match.end() - 1)
        if end > 0:
            yield match.end(), end, f"!({line[match.end():end]})", "condition negated"
            if code[:statement] == code[: match.start()]:
                statement = end + 2
    end = len(code.rstrip())
    if STATEMENT.match(code[statement:end]) and not NO_STATEMENT.match(code[statement:end]):
        yield statement, end, "{}", "statement removed"
    for match in re.finditer(r"\breturn (.+);", code):
        if match[1] not in ("true", "false", "{}", "0", "nullptr"):
            yield match.start(1), match.end(1), "{}", "nothing returned"


def mutants(text, first=1, last=None):
    """All mutants of a source text whose line lies between first and last."""
    for number, line in enumerate(text.split("\n"), 1):
        if number < first or (last and number > last) or line.lstrip().startswith(("#", "//", "static_assert", "namespace")):
            continue
        for start, end, new, what in replacements(line):
            changed = line[:start] + new + line[end:]
            if changed != line:
                yield Mutant(number, line, changed, what)
