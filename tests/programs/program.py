# SPDX-License-Identifier: Apache-2.0
"""What the catalogue says of a program."""

from dataclasses import dataclass, field

from settings import SOAKED

# A block that the checker accuses, in whatever the program printed or wrote.
ACCUSATIONS = (b"###### slop over", b"double free a same memory", b"write log file failed")


@dataclass(frozen=True)
class Program:
    """Real work for a program of Debian's, the same in every run.

    `work` is a shell script, run in an empty folder but for `files` (name -> content, or what makes it); "$SIZE" is
    "small" where a setting costs a walk over the heap per call, else "full". Its standard output and error, its exit
    status and all files that it leaves are compared, but for what `ignore` (glob patterns) names, and after `normalise`
    (pairs of a regular expression and what takes its place) has taken away what differs from run to run. `alone` names
    the commands that are checked where there is no room; these start no others. `slice` and `armhf` are the settings in
    which `make check` runs it on i686 and armhf, without a room: those in which it was seen to pass time after time.
    `emulated` says that `make soak` runs it on armhf, too, which is slow.
    """

    name: str
    packages: tuple
    work: str
    files: dict = field(default_factory=dict)
    alone: tuple = ()
    slice: tuple = ()
    armhf: tuple = ()
    emulated: bool = False
    environment: dict = field(default_factory=dict)
    normalise: tuple = ()
    ignore: tuple = ()

    def checked_in(self, target):
        return {"i686": self.slice, "armhf": self.armhf}.get(target, ())

    def soaked_in(self, target):
        return SOAKED if target == "i686" or target == "armhf" and self.emulated else ()

    def is_for(self, target):
        return bool(self.checked_in(target) or self.soaked_in(target))
