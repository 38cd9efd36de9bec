# SPDX-License-Identifier: Apache-2.0
"""From measurements to tables, and to their places in the document."""

import statistics
import sys
from pathlib import Path

DOCUMENT = Path(__file__).resolve().parent.parent / "docs" / "performance.md"


def middle(values):
    """The median; of tuples, a tuple of the medians of their parts."""
    if isinstance(values[0], tuple):
        return tuple(statistics.median(part) for part in zip(*values))
    return statistics.median(values)


def medians(rounds, measures):
    """{key: function} -> {key: median of what it returned}, the functions called in turns."""
    taken = {key: [] for key in measures}
    for _ in range(rounds):
        for key, measure in measures.items():
            taken[key].append(measure())
    return {key: middle(values) for key, values in taken.items()}


def table(title, header, rows):
    if any(cell in ("nan", "inf", "-inf") for row in rows for cell in row):
        sys.exit(f"bench: {title}: no figure where one should be")
    lines = ["| " + " | ".join(row) + " |" for row in (header, *rows)]
    lines.insert(1, "|" + "|".join(["---"] + ["---:"] * (len(header) - 1)) + "|")
    place = find_table(DOCUMENT.read_text().splitlines(), title)
    print(f"\n### {title}\n", *lines, sep="\n", flush=True)
    if write_document:
        text = DOCUMENT.read_text().splitlines()
        text[slice(*place)] = lines
        DOCUMENT.write_text("\n".join((*text, "")))


write_document = False  # each table takes the place of the one in the document


def find_table(text, title):
    """The lines of the table of that title, [first, end)."""
    heading = f"### {title}"
    if heading not in text:
        sys.exit(f"bench: no '{heading}' in {DOCUMENT.name}")
    first = text.index(heading) + 1
    while not text[first].startswith("|"):
        first += 1
    end = first
    while end < len(text) and text[end].startswith("|"):
        end += 1
    return first, end


NEAREST_HEADER = ("bare", "floor", "defaults", "floor to bare", "defaults to bare", "defaults to floor")


def nearest_row(costs):
    """Of what the three contestants of that name take."""
    bare, floor, checked = costs
    ratios = (floor / bare, checked / bare, checked / floor)
    return *(f"{cost:.0f}" for cost in (bare, floor, checked)), *(f"{ratio:.2f}" for ratio in ratios)


LEAST_HEADER = ("checker", "least", "ratio")


def least_row(checker, least):
    """Of what the checker takes and what the least takes that does the same."""
    return f"{checker:.0f}", f"{least:.0f}", f"{checker / least:.2f}"
