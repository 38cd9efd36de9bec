# SPDX-License-Identifier: Apache-2.0
"""What the tests of tables share: how the tool is called, a table read as docs/frames.md describes it."""

import bisect
import json
import os
import shutil
import struct
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUARL_BUILD", SOURCE / "build")).resolve()
TOOL = BUILD / "host/quarl"
SYSROOT = SOURCE / "build/sysroot"
DEADLINE = 120
HEADER = struct.Struct("<4sHHIIBB2x32s10I")
BASES = ("end", "sp", "ebp", "[ebp]", "r7", "r11", "signal", "rt_signal")
COMPILERS = {"i686": "i686-linux-gnu-", "armhf": "arm-linux-gnueabihf-"}


def checksum(data):
    total = 0
    for (word,) in struct.iter_unpack("<I", data):
        total = (((total << 5 | total >> 27) & 0xFFFFFFFF) ^ word) * 0x9E3779B1 & 0xFFFFFFFF
    return total


class Table:
    def __init__(self, path):
        data = Path(path).read_bytes()
        (self.magic, self.version, self.machine, self.size, self.checksum, self.id_kind, id_size, identity, self.start, self.end,
         pages, self.page_count, rows, self.row_count, rules, self.rule_count, name, name_size) = HEADER.unpack_from(data)
        self.identity = identity[:id_size].hex()
        self.sound = self.size == len(data) and self.checksum == checksum(data[16:])
        self.pages = struct.unpack_from(f"<{self.page_count + 1}I", data, pages)
        self.low = [struct.unpack_from("<HH", data, rows + 4 * index) for index in range(self.row_count)]
        self.rules = [struct.unpack_from("<BBhihh", data, rules + 12 * index) for index in range(self.rule_count)]
        self.path = data[name:name + name_size].rstrip(b"\0").decode()
        page_of = [page for page in range(self.page_count) for _ in range(self.pages[page], self.pages[page + 1])]
        self.addresses = [self.start + (page << 16) + low for page, (low, _) in zip(page_of, self.low)]

    def rule(self, return_address):
        """(base, cfa, place of the return address) for a return address, None without a rule."""
        row = bisect.bisect_right(self.addresses, return_address - 1) - 1
        if row < 0 or self.low[row][1] == 0xFFFF:
            return None
        base, _, back, cfa, _, _ = self.rules[self.low[row][1]]
        return BASES[base], cfa, back


class TablesTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="quarl-frames-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.tables = self.folder / "tables"

    def frames(self, *arguments, status=0):
        """Runs `quarl frames`; gives its standard output and standard error."""
        done = subprocess.run([TOOL, "frames", "-o", self.tables, *map(str, arguments)], capture_output=True, text=True,
                              timeout=DEADLINE, check=False, cwd=self.folder)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout, done.stderr

    def answer(self, *arguments, status=0):
        document = json.loads(self.frames("--format", "json", *arguments, status=status)[0])
        self.assertEqual((document["schema"], document["version"]), ("quarl-frames", 1))
        return document

    def table_of(self, file):
        return Table(self.tables / file["table"])

    def compiled(self, target, text, *options, name="program"):
        """A program of `text` for the target; the test is skipped where there is no compiler for it."""
        compiler = COMPILERS[target] + "gcc"
        if shutil.which(compiler) is None:
            self.skipTest(f"no {compiler}")
        path = self.folder / f"{name}_{target}"
        source = self.folder / f"{name}.c"
        source.write_text(text)
        subprocess.run([compiler, "-O2", *options, source, "-o", path], check=True, timeout=DEADLINE)
        return path
