# SPDX-License-Identifier: Apache-2.0
"""What a run shows to the outside, and how two runs differ."""

import re
import stat
from dataclasses import dataclass
from fnmatch import fnmatch

from program import ACCUSATIONS

LOG = re.compile(r"_\d+_quarl(All|_autosnap)?\.log$")


@dataclass
class Outcome:
    status: object
    stdout: bytes
    stderr: bytes
    files: dict  # path below the working folder -> what is there
    seconds: float
    logs: list  # paths of the checker's own files
    accused: list  # where the checker accuses a block


def normal(program, content):
    for pattern, replacement in program.normalise:
        content = re.sub(pattern.encode(), replacement.encode(), content)
    return content


def errors_of(program, content):
    """Standard error without what the shell says of a job that a signal ended, if it sees that before it is asked."""
    return normal(program, re.sub(rb"(?m)^Terminated\n", b"", content))


def content_of(path):
    mode = path.lstat().st_mode
    if stat.S_ISLNK(mode):
        return b"a link to " + str(path.readlink()).encode()
    if stat.S_ISDIR(mode):
        return b"a folder"
    return path.read_bytes() if stat.S_ISREG(mode) else b"neither file nor folder"


def collect(program, scratch, status, stdout, stderr, seconds):
    """The outcome of a run that worked below `scratch`."""
    folder = scratch / "work"
    outcome = Outcome(status, normal(program, stdout), errors_of(program, stderr), {}, seconds, list((scratch / "logs").iterdir()), [])
    texts = {"standard output": stdout, "standard error": stderr}
    for path in sorted(folder.rglob("*")):
        name = str(path.relative_to(folder))
        if LOG.search(name):
            outcome.logs.append(path)
            continue
        content = content_of(path)
        texts[f"file {name}"] = content
        if not any(fnmatch(name, pattern) for pattern in program.ignore):
            outcome.files[name] = normal(program, content)
    outcome.accused = [f"{name} has: {line[:200]!r}" for name, text in texts.items()
                       for line in text.splitlines() if any(words in line for words in ACCUSATIONS)]
    return outcome


def first_difference(name, plain, checked):
    if plain == checked:
        return []
    if plain is None or checked is None:
        return [f"{name} is there only {'bare' if checked is None else 'checked'}"]
    at = next((i for i, (a, b) in enumerate(zip(plain, checked)) if a != b), min(len(plain), len(checked)))
    return [f"{name} differs at byte {at}: bare {plain[at:at + 120]!r}, checked {checked[at:at + 400]!r}"]


def differences(plain, checked):
    found = []
    if plain.status != checked.status:
        found.append(f"exit status {checked.status}, bare {plain.status}")
    found += first_difference("standard output", plain.stdout, checked.stdout)
    found += first_difference("standard error", plain.stderr, checked.stderr)
    for name in sorted(plain.files.keys() | checked.files.keys()):
        found += first_difference(f"file {name}", plain.files.get(name), checked.files.get(name))
    return found + checked.accused
