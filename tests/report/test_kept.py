# SPDX-License-Identifier: Apache-2.0
"""What the C library keeps by design: left out of what is unfreed, in every view alike, and nothing of the program's with
it. The truth is the test's own: raw records, the log's memory map, and the symbol tables as `nm` reads them."""

import base64
import csv
import gzip
import io
import json
import os
import re
import sqlite3
import struct
import subprocess
import sys
import unittest
from bisect import bisect_right
from collections import Counter
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
sys.dont_write_bytecode = True

import sysroot
import truth
from pprof import Profile
from support import BUILD, DEADLINE, PROGRAMS, TOOL, ReportTest, the_log

RULED = {"libc": r"libc\.so\.6", "ld.so": r"ld-linux.*\.so\.\d"}  # libraries with rules, by base name
OTHERS = r"libresolv\.so\.2"
ENTRIES = {"malloc", "calloc", "realloc", "reallocarray", "memalign", "posix_memalign", "aligned_alloc", "mmap", "mmap64"}
WORKS = {"sqlite3": (":memory:", "select 1;"), "gawk": ('BEGIN{print strftime("%Y", 0)}',), "perl": ("-e", "print getpwnam('root')"),
         "python3.11": ("-S", "-c", "print(1)")}

# The functions of the program that leave what is the program's, and how many blocks; None for as many as it happens to be.
LEAKED = {"leaked_strdup": 1, "leaked_getline": 1, "leaked_fopen": 1, "leaked_asprintf": 1, "leaked_iconv": None,
          "leaked_regcomp": None, "leaked_getaddrinfo": None, "leaked_opendir": 1, "leaked_realpath": 1, "leaked_dlopen": None,
          "leaked_mapping": 1, "leaked_newlocale": 1, "leaked_by_comparison": None, "leaked_by_handler": 1, "leaked_by_thread": 1}


def plain(name):
    return name.split("@")[0].removeprefix("__GI_").lstrip("_")


class Symbols:
    """The dynamic functions of a library: names by the call that returns to an address."""

    def __init__(self, path):
        run = lambda *command: subprocess.run([*command, path], capture_output=True, text=True, check=True).stdout
        self.arm = "ARM" in run("readelf", "-h")
        self.loads = [[int(word, 16) for word in match] for match in
                      re.findall(r"^  LOAD +0x(\w+) 0x(\w+) 0x\w+ 0x(\w+)", run("readelf", "-lW"), re.M)]
        self.functions = sorted((int(start, 16) & ~self.arm, int(size, 16), name) for start, size, name in
                                re.findall(r"^(\w+) (\w+) [TWi] (\S+)$", run("nm", "-D", "--defined-only", "-S"), re.M))
        self.starts = [start for start, _, _ in self.functions]

    def names(self, offset):
        """All names of the function that holds the call ending at `offset` in the file."""
        file, address, _ = next(load for load in self.loads if load[0] // 4096 * 4096 <= offset < load[0] + load[2])
        call = offset - file + address - 1
        first = bisect_right(self.starts, call) - 1
        start = self.starts[first] if first >= 0 else None
        return {plain(name) for at, size, name in self.functions if at == start and call < at + size}


class Rules:
    """The rules of the tool, put to the traces of one log by other means than the tool's."""

    def __init__(self, rules, log):
        self.rules = rules
        self.maps = [(int(start, 16), int(end, 16), int(offset, 16), path) for start, end, offset, path in
                     re.findall(r"^(\w+)-(\w+) \S+ (\w+) \S+ \d+ +(/.*)$", log.maps, re.M)]
        self.symbols = {}

    def frame(self, address):
        """Base name of the file and the names of the function."""
        start, _, offset, path = next(m for m in self.maps if m[0] <= address - 1 < m[1])
        if not re.fullmatch("|".join([*RULED.values(), OTHERS]), Path(path).name):
            return Path(path).name, set()
        symbols = self.symbols.setdefault(path, Symbols(path) if path not in self.symbols else None)
        return Path(path).name, symbols.names((address & ~symbols.arm) - start + offset)

    def covers(self, rule, file, names, asked):
        if not re.fullmatch(RULED.get(rule["library"], "-"), file) or (rule["below_only"] and asked):
            return False
        wanted = [re.escape(plain(word)).replace(r"\*", ".*") for word in rule["functions"]]
        return any(re.fullmatch(word, name) for word in wanted for name in names)

    def keep(self, record):
        asked = True
        for address in record.trace:
            file, names = self.frame(address)
            if asked and (file.startswith("libquarl") or names & ENTRIES):
                continue
            if not re.fullmatch("|".join([*RULED.values(), OTHERS]), file):
                return False
            if any(self.covers(rule, file, names, asked) for rule in self.rules):
                return True
            asked = False
        return False


class Kept(ReportTest):
    def keeping(self, target, *options):
        output, told = self.run_whole(target, *options, "--", PROGRAMS / f"keeping_{target}")
        self.assertEqual(output, "120\n", told)
        return the_log(self.folder, "_quarlAll.log" if "--record" in options else "_quarl.log"), told

    def run_whole(self, target, *arguments, **variables):
        """With traces that go to the program; gives its output and what the runner says."""
        library = BUILD / target / "libquarl.so"
        if not library.exists():
            self.skipTest(f"{target} is not built")
        for old in self.folder.glob("*quarl*"):
            old.unlink()
        environment = {**os.environ, "XDG_CACHE_HOME": str(BUILD / "cache"), "LC_ALL": "C", **variables}
        command = [TOOL, "run", "--keep-all", "--logs", self.folder, "--library", library, "--set", "QUARL_HEAD_STACKDEPTH=40",
                   "--set", "QUARL_MMAP=1", *arguments]
        done = subprocess.run(command, env=environment, input="x", capture_output=True, timeout=DEADLINE, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout, done.stderr

    def split(self, log, entries):
        """What is unfreed, and what is kept by design."""
        rules = Rules(self.json("--list-suppressions")["rules"], log)
        parts = [], []
        for entry in entries:
            parts[rules.keep(entry)].append(entry)
        return parts

    def totals(self, path, entries, kept):
        """In every view of what is unfreed, and in every format."""
        usage = lambda some: {"bytes": sum(entry.size for entry in some), "count": len(some)}
        size, count = usage(entries).values()
        for arguments in ((), ("leaks",), ("leaks", "--by", "thread"), ("leaks", "--by", "module")):
            document = self.json(*arguments, path)
            self.assertEqual((document["unfreed"], document["suppressed"]), (usage(entries), {"bytes": 0, "count": 0}))
            self.assertEqual(document["suppressed_by_default"], usage(kept))
            self.assertEqual(sum(site["bytes"] for site in document["sites"]), size)
        document = self.json(path)
        self.assertEqual([[level["count"], level["bytes"]] for level in document["histogram"]], truth.histogram(entries))
        left_out = f"{usage(kept)['bytes']:,} bytes in {len(kept)} blocks that the C and C++ libraries keep"
        text = self.text(path)
        self.assertIn(f"\nUnfreed      {size:,} bytes in {count} blocks\n", text)
        self.assertIn(f"\nLeft out     {left_out}", text)
        for kind, mapping, file in (("heap", 0, 0), ("mappings", 1, 0), ("files", 1, 1)):
            mine = [entry for entry in entries if (truth.is_mapping(entry), entry.file) == (mapping, file)]
            self.assertRegex(text, rf"\n  {kind} +{usage(mine)['bytes']:,} bytes? in {len(mine)} blocks?\n")
        for option in ((), ("--tree",), ("--by", "file")):
            self.assertIn(f"left out: {left_out}", self.text("leaks", *option, path))
        csv_text, told = self.report("leaks", path, "--format", "csv")
        self.assertEqual(sum(int(row["bytes"]) for row in csv.DictReader(io.StringIO(csv_text.decode()))), size)
        self.assertIn(f"left out: {left_out}", told)
        folded = self.text("leaks", path, "--format", "folded").splitlines()
        self.assertEqual(sum(int(line.rsplit(" ", 1)[1]) for line in folded), size)
        samples = Profile(self.report("leaks", path, "--format", "pprof")[0]).samples
        self.assertEqual((sum(sample.bytes for sample in samples), sum(sample.count for sample in samples)), (size, count))
        everything = self.json("leaks", path, "--no-default-suppressions")
        self.assertEqual((everything["unfreed"], everything["suppressed_by_default"]),
                         (usage([*entries, *kept]), {"bytes": 0, "count": 0}))
        page = re.search(r"(H4sI[\w+/=]+)", self.text(path, "--format", "html"))[1]
        page = json.loads(gzip.decompress(base64.b64decode(page)))
        self.assertEqual((page["held_now"]["total"], page["suppressed_by_default"]), (usage(entries), usage(kept)))
        self.assertEqual(page["mappings"]["count"], sum(truth.is_mapping(entry) for entry in entries))
        self.database(path, usage(entries))

    def summary(self, told, entries, kept):
        """The runner's last line goes by the same rules as the report that it points to."""
        usage = lambda some: f"{sum(entry.size for entry in some)} bytes in {len(some)} blocks"
        unfreed = f"{usage(entries)} never given back" if entries else "everything was given back"
        self.assertIn(f"; {unfreed}; the C and C++ libraries keep {usage(kept)}; ", told)

    def database(self, path, unfreed):
        name = path.with_suffix(".db")
        self.report("--format", "sqlite", "-o", name, path)
        with sqlite3.connect(name) as database:
            rows = database.execute("SELECT ifnull(sum(size), 0), count(*) FROM records WHERE held = 1 AND trace_id NOT IN "
                                    "(SELECT trace_id FROM kept_traces)").fetchall()
        database.close()
        self.assertEqual(rows, [(unfreed["bytes"], unfreed["count"])])
        self.report("--format", "sqlite", "-o", name, "--no-default-suppressions", path, status=2)

    def whose(self, path):
        """Blocks by the function of the program that they are from, the innermost that is named for it."""
        blocks = Counter()
        for site in self.json("leaks", path)["sites"]:
            names = [frame["function"] for frame in site["frames"] if frame["function"].startswith(("leaked_", "kept_"))]
            blocks[names[0] if names else None] += site["count"]
        return blocks

    def test_every_view_leaves_out_the_same(self):
        for target in ("i686", "armhf"):
            for options in ((), ("--record",)):
                with self.subTest(target, options=options):
                    path, told = self.keeping(target, *options)
                    log = truth.Log(path)
                    entries, kept = self.split(log, truth.Replay(log).entries if options else truth.held_in_snapshot(log))
                    self.assertGreater(len(kept), 50)
                    self.totals(path, entries, kept)
                    self.summary(told, entries, kept)
                    held = sum(entry.size for entry in entries), len(entries)
                    self.assertEqual(tuple(self.json("callers", "^leaked_strdup$", path)["all"].values()), held)

    def test_real_programs(self):
        tree = sysroot.sysroot("i686")
        for name, work in WORKS.items():
            with self.subTest(name):
                program = sysroot.debian_program("i686", name)
                if not program.exists():
                    self.skipTest("scripts/fetch-programs has not run")
                _, told = self.run_whole("i686", "--sysroot", tree, "--", program, *work, PYTHONHOME=str(tree / "usr"), PERL5LIB="", LC_ALL="C.UTF-8")
                path = the_log(self.folder, "_quarl.log")
                log = truth.Log(path)
                entries, kept = self.split(log, truth.held_in_snapshot(log))
                self.assertGreater(len(kept), 0)
                self.totals(path, entries, kept)
                self.summary(told, entries, kept)

    def test_nothing_of_the_program_hides(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                path, _ = self.keeping(target)
                whose = self.whose(path)
                for function, count in LEAKED.items():
                    (self.assertEqual if count else self.assertGreater)(whose.pop(function, 0), count or 0, function)
                del whose[None]
                # There setenv jumps to a function that has no name in a stripped library, and is in no trace itself.
                self.assertLessEqual(set(whose), {"kept_environment"} if target == "armhf" else set())

    def test_what_a_rules_function_calls_back_is_the_programs(self):
        """The log as if a function of the program had asked for all that is kept, called by the same functions."""
        path, _ = self.keeping("i686")
        log = truth.Log(path)
        rules = Rules(self.json("--list-suppressions")["rules"], log)
        own = next(address for record in log.records for address in record.trace if rules.frame(address)[0].startswith("keeping"))
        data, start = bytearray(path.read_bytes()), struct.unpack_from("<12I", path.read_bytes(), 40)[7]
        for index, record in enumerate(log.records):
            if rules.keep(record):
                trace = (own, *record.trace)
                data[start + 280 * index + 14] = len(trace)
                struct.pack_into(f"<{len(trace)}I", data, start + 280 * index + 24, *trace)
        before = self.json("leaks", path, "--no-default-suppressions")["unfreed"]
        path.write_bytes(data)
        after = self.json("leaks", path)
        self.assertEqual((after["unfreed"], after["suppressed_by_default"]), (before, {"bytes": 0, "count": 0}))

    def test_the_build_server_goes_by_what_is_left(self):
        path, _ = self.keeping("i686")
        document = self.json("leaks", path)
        unfreed, kept = document["unfreed"]["bytes"], document["suppressed_by_default"]["bytes"]
        self.report("leaks", path, "--fail-on-leak", unfreed)
        self.report("leaks", path, "--fail-on-leak", unfreed - 1, status=3)
        self.report(path, "--fail-on-leak", unfreed, "--no-default-suppressions", status=3)
        self.report(path, "--fail-on-leak", unfreed + kept, "--no-default-suppressions")

    def test_a_known_leak_is_the_users(self):
        path, _ = self.keeping("i686")
        known = self.folder / "known.txt"
        known.write_text("# known\r\nleak:^kept_users$\r\n\n  leak: ^leaked_realpath$ \n")
        before, after = self.json("leaks", path), self.json("leaks", path, "--suppress", known)
        moved = before["suppressed_by_default"]["count"] - after["suppressed_by_default"]["count"]
        self.assertGreater(moved, 5)
        self.assertEqual(after["suppressed"]["count"], moved + 1)
        self.assertEqual(before["unfreed"]["count"], after["unfreed"]["count"] + 1)


if __name__ == "__main__":
    unittest.main()
