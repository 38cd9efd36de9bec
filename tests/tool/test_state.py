# SPDX-License-Identifier: Apache-2.0
"""The library in a process and the check on the desk, given the same random files, come to the same state."""

import os
import random
import re
import select
import struct
import subprocess
import sys
import unittest

from random_config import RandomConfig, documented_keys
from tool import BUILD, DEADLINE, ToolTest, library, victim

CONFIG_STATE = os.path.realpath(os.path.join(BUILD, "host/tests/tool/config_state"))
FILES = 300
SETTINGS = ("cfg_flags", "slop_flags", "stack_depth", "maps_size_kb", "trace_buf_size", "snap_detail", "snap_interval",
            "next_snap_time", "timer_clock_on", "dump_signal", "check_signal", "random_seeded")
LAYOUT = "<IIhxxiIiiIiiii"  # of quarl::Settings
SYMBOLS = ("_ZN5quarl8settingsE", "qr_sig_num", "QR_TRACE_MMAP")
RELOAD_REQUEST = 1 << 20  # in cfg_flags; no item
THREADS_REFUSED = "Can not set thread type.For the PROF function is not set.\n"
SNAPSHOTS_REFUSED = "Get time function is invalid, can not get snapshot info of memory automatically!\n"
ENDS = "QUARL_SNAP_INTERVAL ends the process here: put QUARL_HEAD_TIME=2 above it"
MARK = b"here\n"
LONG_KEY = "Item (the rest of the line) is not support"

# What the check says of a line, and what the library prints for it.
COMPLAINTS = [
    (r'ignored: no item "(.*)"; (?:did you mean|"quarl config").*', "Item {} is not support"),
    (r"ignored: the key is longer than 31 characters", LONG_KEY),
    (r'ignored: "(.*)" is not followed by "="', "Err item {}"),
    (r"ignored: (.*): no value after .*", "Err item {}"),
    (r"ignored: (.*): the value is empty or longer than 15 characters", "Item {} is not support"),
    (r"a line of blanks is no empty line; the library complains about it", "Err item "),
]


def complaint_of(finding):
    for pattern, text in COMPLAINTS:
        if match := re.fullmatch(pattern, finding, re.DOTALL):
            return text.format(*match.groups())
    return None


def symbols_of(path):
    """{name: (offset in the file's mapping, size)}"""
    listing = subprocess.run(["i686-linux-gnu-nm", "-S", path], capture_output=True, text=True, check=True).stdout
    rows = [line.split() for line in listing.splitlines()]
    return {row[3]: (int(row[0], 16), int(row[1], 16)) for row in rows if len(row) == 4 and row[3] in SYMBOLS}


def handled_by(pid):
    """The signals with a handler, but for the two that the C library handles when it likes."""
    with open(f"/proc/{pid}/status") as status:
        caught = int(re.search(r"^SigCgt:\s*(\w+)$", status.read(), re.MULTILINE)[1], 16)
    return [number for number in range(1, 65) if number not in (32, 33) and caught >> (number - 1) & 1]


class StateTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.library = library("i686")
        self.symbols = symbols_of(self.library)
        self.assertEqual(set(self.symbols), set(SYMBOLS))
        self.assertEqual(self.symbols[SYMBOLS[0]][1], struct.calcsize(LAYOUT), "LAYOUT is not that of quarl::Settings")

    def believed(self, paths):
        """What the tool believes in after each file: (state, findings)."""
        text = subprocess.run([CONFIG_STATE, *paths], capture_output=True, check=True, timeout=DEADLINE).stdout
        for block in ("\n" + text.decode("latin-1")).split("\nfile ")[1:]:
            state, findings = {"handles": []}, []
            for row in block.rstrip("\n").split("\n")[1:]:
                name, value = row.split(" ", 1)
                if name == "finding":
                    findings.append(value)
                elif name == "handles":
                    state[name].append(int(value))
                else:
                    state[name] = int(value)
            yield state, findings

    def memory(self, pid):
        """The same state out of the memory of a process."""
        with open(f"/proc/{pid}/maps") as maps:
            base = min(int(line.split("-")[0], 16) for line in maps if line.rstrip().endswith(self.library))
        with open(f"/proc/{pid}/mem", "rb", buffering=0) as memory:
            def read(symbol, layout):
                memory.seek(base + self.symbols[symbol][0])
                return struct.unpack(layout, memory.read(struct.calcsize(layout)))
            state = dict(zip(SETTINGS, read(SYMBOLS[0], LAYOUT)))
            for symbol in SYMBOLS[1:]:
                state[symbol] = read(symbol, "<i")[0]
        del state["next_snap_time"]  # moves on with the clock of the process
        state["cfg_flags"] &= ~RELOAD_REQUEST  # a timer with the dump's signal asks for one after a second
        return {**state, "handles": handled_by(pid)}

    def run_under(self, path):
        """A process that reads the file: (state, or None when it ended by itself; exit status; output; messages)."""
        variables = {**self.environment, "LD_PRELOAD": self.library, "QUARL_CFG_FILE": path}
        process = subprocess.Popen([victim("i686"), "stay"], env=variables, cwd=self.folder, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        with process:
            try:
                out = self.read_to_mark(process.stdout)
                state = self.memory(process.pid) if MARK in out else None
                if state is None:
                    process.wait(DEADLINE)
            finally:
                process.kill()
            messages = process.stderr.read().decode("latin-1").split("\n")
        return state, process.returncode, out.decode("latin-1"), messages

    def read_to_mark(self, stream):
        out = b""
        while MARK not in out:
            self.assertTrue(select.select([stream], [], [], DEADLINE)[0], out)
            piece = os.read(stream.fileno(), 65536)
            if not piece:
                break
            out += piece
        return out

    def compare(self, path, state, findings):
        """Whether the process went on, as the check says."""
        found, status, out, messages = self.run_under(path)
        ends = ENDS in findings
        if ends:
            findings = findings[:findings.index(ENDS)]
        complaints = [text for text in map(complaint_of, findings) if text is not None]
        printed = [re.sub(r"^Item .{32,} is not support$", LONG_KEY, text, flags=re.DOTALL)
                   for text in messages if re.match("Item |Err item ", text)]
        self.assertEqual(printed, complaints)
        refused = [text for text in findings if text.startswith("QUARL_THREAD is refused")]
        self.assertEqual(out.count(THREADS_REFUSED), len(refused), out)
        self.assertEqual(out.count(SNAPSHOTS_REFUSED), int(ends), out)
        if ends:
            self.assertEqual((found, status), (None, 0), out)
        else:
            self.assertEqual(found, state)
        return not ends

    def test_random_files(self):
        seed = int(os.environ.get("QUARL_SEED", random.randrange(1 << 32)))
        print(f"QUARL_SEED={seed}", file=sys.stderr)
        maker = RandomConfig(random.Random(seed), documented_keys())
        files = [maker.file() for _ in range(FILES)]
        paths = [self.write(f"{number}.ini", content) for number, content in enumerate(files)]
        went_on = 0
        for path, content, (state, findings) in zip(paths, files, self.believed(paths), strict=True):
            with self.subTest(seed=seed, file=content):
                went_on += self.compare(path, state, findings)
        print(f"{FILES} files, of which {FILES - went_on} end their process", file=sys.stderr)
        self.assertGreater(went_on, FILES // 3)
        self.assertGreater(FILES - went_on, 0)

    def test_without_a_file_the_defaults_hold(self):
        (state, findings), = self.believed([self.write("empty.ini", "")])
        self.assertEqual(findings, [])
        self.assertEqual(self.run_under("missing.ini")[0], state)


if __name__ == "__main__":
    unittest.main()
