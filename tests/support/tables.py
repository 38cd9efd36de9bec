# SPDX-License-Identifier: Apache-2.0
"""The printed tables, built from figures."""

ROWS = ["malloc", "realloc", "free", "memalign", "mmap", "munmap", "mmap file", "munmap file"]


def statistics(size=0, peak=0, file_size=0, file_peak=0, **rows):
    """rows: name (blank as underscore) = (calls, failed, bytes)."""
    text = "\n########### Program memory prof info ###########\n            calls count   failed count   total size(byte)\n"
    for name in ROWS:
        calls, failed, total = rows.pop(name.replace(" ", "_"), (0, 0, 0))
        text += f"{name:<11} {calls:<10}    {failed:<10}     {total}\n"
    assert not rows, rows
    text += f"unfree mem size           {size}\nunfree mem peak           {peak}\n"
    return text + f"unfree mem size from file {file_size}\nunfree mem peak from file {file_peak}\n\n"


def histogram(sizes):
    """The table of unfreed memory for blocks and mappings of these sizes."""
    if not sizes:
        return "\nNo memory block unfree.\n"
    bounds = [(0, 99), (100, 999), (1000, 9999), (10000, 99999)]
    text = "Prof info of unfreed memory blocks is as follows:\n\nLevel   size(byte)      unfree memory num\n"
    for level, (low, high) in enumerate(bounds):
        count = sum(low <= size <= high for size in sizes)
        text += f"{level:<5}   {low:<5} - {high:<5}   {count}\n"
    return text + f"4       Large           {sum(size > 99999 for size in sizes)}\n"


def saved(path):
    return f"Log info has been saved to log file {path.name}.\n"
