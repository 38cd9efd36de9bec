# SPDX-License-Identifier: Apache-2.0
"""How far the traces of a record log agree with what gdb saw in the same process."""

import collections
import difflib
import json
import os
from dataclasses import dataclass, field

import log_file

BLOCKS = ("malloc", "realloc", "calloc", "memalign")
SPARE = 100  # records beyond as many as there are stops that may belong to one


@dataclass
class Agreement:
    stops: int = 0  # that were found in the log
    frames: int = 0  # that gdb saw
    agreed: int = 0
    causes: collections.Counter = field(default_factory=collections.Counter)

    @property
    def share(self):
        return self.agreed / self.frames if self.frames else 0.0


def place(log, address):
    module = log.module_of(address)
    return f"{os.path.basename(module[0])}+{address - module[1]:x}" if module else f"{address:#x}"


def first_difference(log, seen, ours):
    """The frame that was left otherwise than gdb leaves it, and where the two went."""
    at = next((i for i, pair in enumerate(zip(seen, ours)) if pair[0] != pair[1]), min(len(seen), len(ours)))
    behind = place(log, seen[at - 1]) if at else "the hook"
    return f"{behind} -> {place(log, seen[at])}, not {place(log, ours[at]) if at < len(ours) else 'the end'}"


def pairs(stops, records):
    """What belongs together, by the order of the sizes: failed and nested allocations are on one side only."""
    sizes = difflib.SequenceMatcher(None, [size for size, *_ in stops], [each.size for each in records], False)
    for match in sizes.get_matching_blocks():
        yield from zip(stops[match.a : match.a + match.size], records[match.b : match.b + match.size])


def compare(path_of_stops, path_of_log, thumb_bit):
    log = log_file.read_log(path_of_log)
    stops = [json.loads(line) for line in path_of_stops.read_text().splitlines()]
    made = [record for record in log.records
            if record.kind == log_file.ALLOCATED and log_file.OPERATIONS[record.operation] in BLOCKS]
    found = Agreement()
    for (_, *seen), record in pairs(stops, made[: len(stops) + SPARE]):
        ours = [address & ~thumb_bit for address in record.trace][: len(seen)]
        found.stops += 1
        found.frames += len(seen)
        found.agreed += sum(one == other for one, other in zip(seen, ours))
        if ours != seen:
            found.causes[first_difference(log, seen, ours)] += 1
    return found
