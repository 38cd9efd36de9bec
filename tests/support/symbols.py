# SPDX-License-Identifier: Apache-2.0
"""Which function an address lies in, by the symbol table of the file that is mapped there."""

import bisect
import functools
import subprocess


@functools.cache
def functions(tool, path):
    text = subprocess.run([tool, "-n", "--defined-only", path], capture_output=True, text=True, check=True).stdout
    rows = [line.split() for line in text.splitlines()]
    return [(int(row[0], 16), row[2]) for row in rows if row[1] in "tTwWi" and not row[2].startswith("$")]


def is_fixed(target, path):
    text = subprocess.run([target.tool("readelf"), "-h", path], capture_output=True, text=True, check=True).stdout
    return "EXEC (" in text


def function_of(target, snapshot, address):
    """The function that a return address of the trace lies in: the call stands before it."""
    path, base = snapshot.module_of(address)
    return function_at(target, path, address - 1 - (0 if is_fixed(target, path) else base))


def function_at(target, path, offset):
    """The function that an address of an ELF file lies in."""
    table = functions(target.tool("nm"), path)
    index = bisect.bisect_right(table, (offset, "\x7f"))
    return table[index - 1][1] if index else None


def names(target, snapshot, trace):
    return [function_of(target, snapshot, address) for address in trace]
