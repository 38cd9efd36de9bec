# SPDX-License-Identifier: Apache-2.0
"""The texts of fault reports, taken apart and put together to the byte."""

import re
from dataclasses import dataclass

HEADS = {
    "head": "######  slop over occurs at front of a memory block whose detail info is as follows:\n",
    "tail": "###### slop over occurs at tail of a memory block whose detail info is as follows:\n",
}
DETAILS = re.compile(
    r"tid : (-?\d+)\n(?:time: (\d+)\n)?seq_num: (\d+)\nmemory operation : ([a-z ]+)\nresult : memory slop over at (head|tail)\n"
    r"stack_depth : (-?\d+)\nsize : (\d+)\nstart_addr : 0x([0-9a-f]+)\ncall trace :\n((?:\d+ : 0x[0-9a-f]+\n)*)")


@dataclass
class Report:
    kind: str
    tid: int
    time: int | None
    seq_num: int
    operation: str
    size: int
    address: int
    trace: list


def double_free(address):
    return f"double free a same memory block whose address is : {address:#x}\n"


def exit_line(task):
    return f"task: {task} exit!!\n"


def take_report(text):
    """The report at the start of the text and what follows it; fails when anything else stands there."""
    kind = next((kind for kind, line in HEADS.items() if text.startswith(line)), None)
    assert kind, f"no report at {text[:200]!r}"
    match = DETAILS.match(text, len(HEADS[kind]))
    assert match and match[5] == kind, f"report torn: {text[:600]!r}"
    lines = match[9].splitlines()
    trace = [int(line.split(" : ")[1], 16) for line in lines]
    assert [line.split(" : ")[0] for line in lines] == [str(i) for i in range(len(trace))], match[9]
    assert int(match[6]) == len(trace), f"depth {match[6]} with {len(trace)} lines"
    report = Report(kind, int(match[1]), match[2] and int(match[2]), int(match[3]), match[4], int(match[7]),
                    int(match[8], 16), trace)
    return report, text[match.end():]


def take_reports(text):
    """The reports that the text begins with, and the rest."""
    reports = []
    while text.startswith("######"):
        report, text = take_report(text)
        reports.append(report)
    return reports, text
