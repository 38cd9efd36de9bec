# SPDX-License-Identifier: Apache-2.0
"""Heaps damaged at random, under several configurations: the checker reports, and neither crashes, hangs nor floods.

QUARL_DAMAGE_ROUNDS and QUARL_DAMAGE_SEED choose how many rounds in all and which; the seed is printed.
"""

import os
import random
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import target
from promise import promise

CONFIGURATIONS = (
    "QUARL_SLOPOVER_USER=40",
    "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_USER=40",
    "QUARL_HEAD_TID=0 QUARL_HEAD_TIME=0 QUARL_HEAD_STACKDEPTH=0",
    "QUARL_HEAD_STACKDEPTH=64 QUARL_HEAD_TIME=0 QUARL_PRINT_PROFINFO=1 QUARL_OUTPUT_LOG=1",
    "QUARL_SLOPOVER=0",
    "QUARL_SLOPOVER=0 QUARL_HEAD_TID=0 QUARL_HEAD_STACKDEPTH=0 QUARL_OUTPUT_LOG=1",
    "QUARL_SLOPOVER_MALLOC=1 QUARL_SLOPOVER_FREE=1 QUARL_THREAD=1",
    "QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_SNAP_INTERVAL=1000 QUARL_SNAP_DETAIL=1",
)
FRESH = 7  # the configuration whose timer a forked child would not have


def raw_entries():
    """Where the entries to the allocator lie in the library: "low-high;"s."""
    now = target.current()
    text = subprocess.run([now.tool("nm"), "-S", now.library], capture_output=True, text=True, check=True).stdout
    found = re.findall(r"^(\w+) (\w+) \w ext_(?:free|realloc)$", text, re.M)
    return "".join(f"{int(start, 16):x}-{int(start, 16) + int(size, 16):x};" for start, size in found)


def rounds_of(configuration, count, seed, here):
    """What the program says of so many rounds, and its command line."""
    now = target.current()
    with tempfile.TemporaryDirectory(prefix="quarl-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None) as folder:
        other = CONFIGURATIONS[(here + 3) % len(CONFIGURATIONS)]
        for name, items in (("quarlcfg.ini", configuration), ("other.ini", other)):
            (Path(folder) / name).write_text("".join(item + "\n" for item in items.split()))
        fresh = ["fresh"] if here == FRESH and not now.emulated else []
        line, environment = now.command(now.victim("damage"), [seed, here * 1_000_000, count, *fresh],
                                        {"QUARL_DAMAGE_ENTRIES": raw_entries()}, True)
        done = subprocess.run(line, env=environment, cwd=folder, capture_output=True, text=True, check=False)
        return done.stdout, done.stderr, f"{configuration}: {' '.join(map(str, line))}"


class Damage(unittest.TestCase):
    @promise("A damaged heap neither crashes nor hangs the checker, nor makes it print without end.")
    def test_nothing_but_reports(self):
        emulated = target.current().emulated
        rounds = int(os.environ.get("QUARL_DAMAGE_ROUNDS", 200 if emulated else 1600))
        seed = int(os.environ.get("QUARL_DAMAGE_SEED", random.SystemRandom().randrange(1 << 31)))
        print(f"seed {seed}", file=sys.stderr, flush=True)
        totals, failed = [0] * 4, []
        for here, configuration in enumerate(CONFIGURATIONS):
            count = rounds // len(CONFIGURATIONS)
            out, err, line = rounds_of(configuration, count, seed, here)
            ended = re.search(r"^sound (\d+) apart (\d+) failed (\d+) stopped (\d+)$", out, re.M)
            self.assertIsNotNone(ended, f"seed {seed}: {line}: {out[-2000:]} {err[-2000:]}")
            totals = [a + int(b) for a, b in zip(totals, ended.groups())]
            failed += [f"{line}: {text}" for text in out.splitlines() if text.startswith("round")]
        print("sound {} apart {} failed {} stopped {}".format(*totals), file=sys.stderr, flush=True)
        self.assertEqual(failed, [], f"seed {seed}: " + "\n".join(failed))
        self.assertGreater(totals[3], rounds // 4)  # faults were planted and found
        self.assertGreater(totals[0], rounds // 2)


if __name__ == "__main__":
    unittest.main()
