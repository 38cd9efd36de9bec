"""From measurements to tables."""

import statistics


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
    print(f"\n### {title}\n")
    print("| " + " | ".join(header) + " |")
    print("|" + "|".join(["---"] + ["---:"] * (len(header) - 1)) + "|")
    for row in rows:
        print("| " + " | ".join(row) + " |", flush=True)


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
