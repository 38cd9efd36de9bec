# SPDX-License-Identifier: Apache-2.0
"""An events file (docs/events.md), each line held to what every line has."""

import json
import re

MOST = 4095  # bytes of a line
HEAD = ["v", "event", "pid", "tid", "time"]


class Event(dict):
    kind = property(lambda self: self["event"])


def parse_line(line):
    assert line.endswith(b"\n") and len(line) <= MOST, (len(line), line[-80:])
    event = json.loads(line.decode("utf-8"), object_pairs_hook=unique)
    assert list(event)[:5] == HEAD and event["v"] == 1, line
    assert re.search(rb'"time":\d+\.\d{6}[,}]', line), line
    return Event(event)


def unique(pairs):
    assert len(dict(pairs)) == len(pairs), pairs
    return dict(pairs)


def read_events(path):
    data = path.read_bytes()
    return [parse_line(line) for line in data.splitlines(keepends=True)]


def addresses(events, event, trace):
    """The return addresses of a trace, by the modules of its process that were told before it."""
    biases = {}
    for each in events[:next(i for i, other in enumerate(events) if other is event)]:
        if each["pid"] == event["pid"]:
            if each.kind == "loaded":
                biases = {}
            if each.kind == "module":
                assert each["id"] not in biases, each
                biases[each["id"]] = int(each["bias"], 16)
    return [int(offset, 16) if module is None else biases[module] + offset for module, offset in trace]
