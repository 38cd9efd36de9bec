# SPDX-License-Identifier: Apache-2.0
"""What the events of a work must tell: whole lines, each process from its beginning, and no fault."""

import sys
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[1] / "support"))

from events import read_events


def wrong_events(path):
    """What is wrong with an events file of programs without faults, a line each."""
    wrong, processes = [], set()
    for event in read_events(path):
        if event["pid"] not in processes and event.kind != "loaded":
            wrong.append(f"process {event['pid']} begins with {event}")
        processes.add(event["pid"])
        if event.kind in ("fault", "parked", "crash") or "dropped" in event:
            wrong.append(f"told: {event}")
    return wrong if processes else ["no process at all"]
