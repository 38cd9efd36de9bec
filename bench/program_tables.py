"""What whole runs of real programs cost, from their start to their end, and what the start alone does."""

import sys
from collections import namedtuple
from pathlib import Path

import inputs
import sysroot
from contestants import ALL, BARE, DEFAULTS, FLOOR, NEAREST, Contestant, folder, run
from figures import NEAREST_HEADER, medians, nearest_row, table

WORK = Path(__file__).resolve().parent / "work"
STARTS_A_ROUND = 20

# The same work in every run, of 0.1 to 0.5 s: `files` makes what it reads, for a share of a whole work.
Work = namedtuple("Work", "program arguments files stdin")

# All promises of the C library, which these programs were written for.
ENVIRONMENT = {"QUARL_CONTRACT": "libc", "LC_ALL": "C", "PERL_HASH_SEED": "0", "PYTHONHASHSEED": "0",
               "PYTHONDONTWRITEBYTECODE": "1", "PYTHONHOME": str(sysroot.sysroot("i686") / "usr")}


def works(share):
    table_rows, document = inputs.table(int(60_000 * share)), inputs.document(int(12_000 * share))

    def work(program, script, *options, **files):
        return Work(program, (*options, WORK / script, *(name for name in files if options)), files, b"")

    return (
        Work("sqlite3", ("-batch", "work.db"), {}, inputs.sqlite_script(int(10_000 * share))),
        work("lua5.4", "work.lua", table=table_rows),
        work("perl", "work.pl", table=table_rows),
        work("gawk", "work.awk", "-f", text=inputs.text(int(1_500_000 * share))),
        work("jq", "work.jq", "-c", "-f", document=document),
        work("python3.11", "work.py", document=document, table=table_rows),
    )


def seconds(contestant, work, expected):
    done = run(contestant, sysroot.debian_program("i686", work.program), *work.arguments, stdin=work.stdin, files=work.files,
               environment=ENVIRONMENT)
    if expected is not None and done.output != expected:
        sys.exit(f"bench: {contestant.name} changed what {work.program} says")
    return done


def compare(contestants, chosen, rounds):
    """{(program, contestant): seconds}, by the names of both."""
    expected = {work.program: seconds(BARE, work, None).output for work in chosen}
    return medians(rounds, {(work.program, c.name): lambda work=work, c=c: seconds(c, work, expected[work.program]).seconds
                            for work in chosen for c in contestants})


def program_table(options):
    chosen = works(options.share)
    cost = compare(NEAREST, chosen, options.rounds)
    table("Real programs, s", ("", *NEAREST_HEADER),
          [nearest_row(work.program, [cost[work.program, c.name] for c in NEAREST], 3) for work in chosen])


def sqlite_table(options):
    contestants = [c for c in ALL if not c.suffix]
    cost = compare(contestants, works(options.share)[:1], options.rounds)
    bare, floor = (cost["sqlite3", c.name] for c in (BARE, FLOOR))
    table("sqlite3", ("", "s", "to bare", "to floor"),
          [(name, f"{s:.3f}", f"{s / bare:.2f}", f"{s / floor:.2f}") for (_, name), s in cost.items()])


def start_table(options):
    """A process that does nothing, with a library preloaded."""
    contestants = [Contestant("an empty library", (folder("i686") / "empty.so",)), FLOOR, DEFAULTS]

    def measure(contestant):
        """Processor time in ms: until main, from the first constructor to main, of the whole process."""
        clocked = Contestant(contestant.name, (*contestant.preload, folder("i686") / "start_clock.so"))
        done = run(clocked, folder("i686") / "start")
        constructors, main = (float(ns) / 1e6 for ns in done.output.split())
        return main, main - constructors, done.seconds * 1e3

    cost = medians(options.rounds * STARTS_A_ROUND, {c.name: lambda c=c: measure(c) for c in contestants})
    empty = cost["an empty library"]
    table("Start of a process, ms", ("preloaded", "constructors", "until main", "ratio", "whole process", "ratio"),
          [(name, f"{constructors:.3f}", f"{main:.2f}", f"{main / empty[0]:.2f}", f"{whole:.2f}", f"{whole / empty[2]:.2f}")
           for name, (main, constructors, whole) in cost.items()])


TABLES = {"programs": program_table, "sqlite3": sqlite_table, "start": start_table}
