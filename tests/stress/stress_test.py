# SPDX-License-Identifier: Apache-2.0
"""Eight threads under fire: no deadlock, no lost block, no report, and logs that agree with what the program did."""

import os
from collections import Counter

import case
import process
from log_file import ALLOCATED, OPERATIONS, RELEASED, read_chain, read_log
from promise import promise

SIGNALS = "QUARL_TIMER_SIG=SIGUSR2 QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_SLOPOVER_USER=40 "
NAMES = {"malloc": "malloc", "realloc": "realloc", "free": "free", "memalign": "memalign", "realloc_release": "realloc release"}


def own(record):
    """Whether the program's code asked for it: the C library's own sizes are others."""
    return record.size % 32 == 11


class Stress(case.Case):
    rounds = int(os.environ.get("QUARL_STRESS_ROUNDS", 0))
    seed = int(os.environ.get("QUARL_STRESS_SEED", 0))

    def stress(self, config, modes, rounds, again=()):
        process.DEADLINE = 240 + 2 * self.rounds
        stress = self.run_victim("stress", self.rounds or rounds, self.seed, modes, *again, config=config)
        self.assert_ends(stress)
        return stress

    @promise("A fork waits for the lock, so the child finds everything whole.",
             "Nothing that runs under the lock is a cancellation point, so a cancelled thread never takes the lock"
             " with it.")
    def test_everything_at_once(self):
        """Children, programs started, threads cancelled and signals of all three kinds, in both kinds of log."""
        victim = self.target.victim("stress")
        command, _ = self.target.command(victim, (1, self.seed, "-"), {"QUARL_CFG_FILE": "none"}, True)
        for config in ("", "QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=5600"):
            with self.subTest(config):
                # The emulator's own locks are held for ever in a child that is forked beside threads.
                modes, rounds = ("sc", 100) if self.target.emulated else ("sfec", 400)
                stress = self.stress(SIGNALS + config, modes, rounds, command)
                kind = "quarlAll" if config else "quarl"
                log = read_log(self.log_path(stress, kind, program="stress"))
                if config:
                    live = replay(self, log.records)
                else:
                    live = {record.address: record for record in log.records}
                self.assertEqual([record.brief() for record in live.values() if own(record)], [])

    def test_signals_as_many_as_there_can_be(self):
        """A swap of the lock's word that a handler interrupts, and in vain tries to make itself, comes out right."""
        self.stress(SIGNALS, "sS", 2000)

    def test_logs_agree_with_what_the_program_did(self):
        config = SIGNALS + "QUARL_OUTPUT_LOG=1 QUARL_SNAP_INTERVAL=1000 QUARL_SNAP_DETAIL=1 QUARL_PROF=1 QUARL_THREAD=1"
        stress = self.stress(config, "sk", 20 if self.target.emulated else 60)
        log = read_log(self.log_path(stress, "quarlAll", program="stress"))
        done = self.announced(stress)
        for tid, operations in done.items():
            mine = [record for record in log.records if record.tid == tid and own(record)]
            calls, totals = Counter(), Counter()
            for record in mine:
                calls[OPERATIONS[record.operation]] += 1
                totals[OPERATIONS[record.operation]] += record.size
            self.assertEqual({name: (calls[name], totals[name]) for name in operations}, operations)
            extra = Counter(OPERATIONS[record.operation] for record in log.records if record.tid == tid and not own(record))
            counted = log.threads[tid].counts()
            self.assertEqual({name: counted[name][0] - extra[name] for name in operations},
                             {name: calls for name, (calls, _) in operations.items()})
        for index, name in enumerate(OPERATIONS):
            if "chunk" not in name and "munmap" not in name:
                kept = [record for record in log.records if record.operation == index]
                self.assertEqual((log.stats.calls[index], log.stats.totals[index]), (len(kept), sum(r.size for r in kept)), name)
        sequence = sorted(record.seq_num for record in log.records)
        self.assertEqual(len(set(sequence)), len(sequence))
        live = replay(self, log.records)
        self.assertEqual({record.address for record in live.values() if own(record)}, set(stress.said("left")))
        self.assertEqual(sum(record.size for record in live.values()), log.stats.held)
        last = read_chain(self.log_path(stress, "quarl_autosnap", program="stress"))[-1]
        blocks = {record.address: record.size for record in last.records if record.operation in (0, 1, 4)}
        self.assertEqual(blocks, {address: record.size for address, record in live.items()})

    def announced(self, stress):
        """{tid: {operation: (calls, bytes)}} as the program counted."""
        tids, sizes = stress.said("tid"), stress.said("bytes")
        columns = {name: stress.said(name) for name in NAMES}
        return {tid: {NAMES[name]: (columns[name][thread], sizes[thread * len(NAMES) + place])
                      for place, name in enumerate(NAMES)} for thread, tid in enumerate(tids)}


def replay(test, records):
    """The blocks that are live after all records; mappings left aside. Blocks of one address follow each other."""
    live = {}
    for record in records:
        if record.operation in (5, 6):
            continue
        if record.kind == ALLOCATED:
            test.assertNotIn(record.address, live)
            live[record.address] = record
        elif record.kind == RELEASED and record.address in live:
            test.assertEqual(live.pop(record.address).size, record.size)
    return live


if __name__ == "__main__":
    case.main()
