# SPDX-License-Identifier: Apache-2.0
"""What whole runs of real programs cost, from their start to their end, and what the start alone does."""

import sys
from collections import namedtuple
from pathlib import Path

import inputs
import sysroot
from contestants import ALL, BARE, DEFAULTS, FLOOR, NEAREST, Contestant, executed, folder, run
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


def do(contestant, work, counted=False):
    return run(contestant, sysroot.debian_program("i686", work.program), *work.arguments, stdin=work.stdin, files=work.files,
               environment=ENVIRONMENT, counted=counted)


def compare(contestants, chosen, rounds, counted=False):
    """{(program, contestant): processor time in ms, or millions of instructions}, by the names of both."""
    said = {}

    def measure(work, contestant):
        done = do(contestant, work, counted)
        if said.setdefault(work.program, done.output) != done.output:
            sys.exit(f"bench: {contestant.name} changed what {work.program} says")
        return executed(done) / 1e6 if counted else done.seconds * 1e3

    return medians(rounds, {(work.program, c.name): lambda work=work, c=c: measure(work, c) for work in chosen
                            for c in contestants})


def print_programs(title, chosen, cost):
    table(title, ("", *NEAREST_HEADER),
          [(work.program, *nearest_row(cost[work.program, c.name] for c in NEAREST)) for work in chosen])


def program_table(options):
    chosen = works(options.share)
    print_programs("Real programs, ms", chosen, compare(NEAREST, chosen, options.rounds))


def program_instruction_table(options):
    """Of a smaller work: counting takes fifty times as long."""
    chosen = works(options.share / 10)
    print_programs("Real programs, millions of instructions of a tenth of the work", chosen,
                   compare(NEAREST, chosen, 1, counted=True))


def sqlite_table(options):
    contestants = [c for c in ALL if not c.suffix]
    cost = compare(contestants, works(options.share)[:1], options.rounds)
    bare, floor = (cost["sqlite3", c.name] for c in (BARE, FLOOR))
    table("sqlite3", ("", "ms", "to bare", "to floor"),
          [(name, f"{ms:.0f}", f"{ms / bare:.2f}", f"{ms / floor:.2f}") for (_, name), ms in cost.items()])


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


TABLES = {"programs": program_table, "program-instructions": program_instruction_table, "sqlite3": sqlite_table, "start": start_table}
