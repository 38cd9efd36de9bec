# SPDX-License-Identifier: Apache-2.0
"""Addresses turned into functions and lines, from files in all the places where a desk keeps them."""

import re
import shutil
import struct
import subprocess
import unittest

from log_builder import ALLOCATED, MALLOC
from support import PROGRAMS, ReportTest

BASE = 0x56550000
TARGETS = {"i686": "i686-linux-gnu-", "armhf": "arm-linux-gnueabihf-"}


def output(*command):
    return subprocess.run(list(map(str, command)), capture_output=True, check=True, text=True).stdout


class Elf:
    """What the tests need of an ELF file, as binutils tell it."""

    def __init__(self, path, prefix):
        self.path, self.prefix = path, prefix

    def functions(self, *options):
        lines = [line.split() for line in output(f"{self.prefix}nm", *options, self.path).splitlines()]
        return {fields[2].split("@")[0]: int(fields[0], 16) for fields in lines if len(fields) == 3 and fields[1] in "TtW"}

    def calls(self, *options):
        """[(function, return address)] of all calls, as objdump tells them."""
        found, name, caller = [], "", None
        for line in output(f"{self.prefix}objdump", "-d", *options, self.path).splitlines():
            if start := re.match(r"[0-9a-f]+ <(.*)>:$", line):
                name = start[1].split("@")[0]
            if instruction := re.match(r" *([0-9a-f]+):\t([0-9a-f ]+)\t(\S+)", line):
                if caller:
                    found.append((caller, int(instruction[1], 16)))
                caller = name if re.match(r"call|blx?(\.|$)", instruction[3]) else None
        return found

    def call_in(self, function, *options):
        """What the first call in a function returns to."""
        return next(address for name, address in self.calls(*options) if name == function)

    def code(self):
        """Offset, address and size of the executable segment."""
        for line in output(f"{self.prefix}readelf", "-lW", self.path).splitlines():
            fields = line.split()
            if fields and fields[0] == "LOAD" and "E" in "".join(fields[6:-1]):
                return tuple(int(field, 16) for field in (fields[1], fields[2], fields[4]))
        raise AssertionError("no executable segment")

    def maps(self, target_path):
        offset, address, size = self.code()
        start = BASE + (address & ~0xFFF)
        end = BASE + ((address + size + 0xFFF) & ~0xFFF)
        return f"{start:08x}-{end:08x} r-xp {offset & ~0xFFF:08x} 00:00 1    {target_path}\n"


def built():
    """The sample program of each target that there is a compiler for."""
    found = [Elf(PROGRAMS / f"leaky_{target}", prefix) for target, prefix in TARGETS.items()]
    return [elf for elf in found if elf.path.exists() and shutil.which(f"{elf.prefix}objcopy")]


class Symbols(ReportTest):
    def each_target(self):
        return built()

    def setUp(self):
        super().setUp()
        if not self.each_target():
            self.skipTest("no cross compiler built the sample programs")

    def frame(self, elf, address, *options, path="/opt/app/leaky"):
        """The one frame of a trace that returns to `address`, an address of the file, and what was said on the way."""
        record = self.layout.record(MALLOC, ALLOCATED, 0x1000, 10, [BASE + address])
        log = self.write(self.layout.log([record], maps=elf.maps(path), time=1))
        document = self.json("leaks", log, *options)
        return document["sites"][0]["frames"][-1], document["warnings"]

    def stripped(self, elf, folder):
        """A stripped copy, and its debug file under its build id in folder/debug and beside it by debug link."""
        folder.mkdir(parents=True)
        plain = folder / "leaky"
        output(f"{elf.prefix}objcopy", "--strip-all", elf.path, plain)
        identity = output(f"{elf.prefix}readelf", "-n", elf.path).split("Build ID: ")[1].split()[0]
        debug = folder / "debug/.build-id" / identity[:2] / f"{identity[2:]}.debug"
        debug.parent.mkdir(parents=True)
        output(f"{elf.prefix}objcopy", "--only-keep-debug", elf.path, debug)
        return plain, debug

    def test_files_are_found_by_sysroot_rename_and_name(self):
        for elf in self.each_target():
            call = elf.call_in("leak_list")
            root = self.folder / elf.prefix / "root"
            (root / "opt/app").mkdir(parents=True)
            shutil.copy(elf.path, root / "opt/app/leaky")
            for options in (["--sysroot", root], ["--map", f"/opt={root}/opt"], ["--debug-dir", root / "opt/app"]):
                frame, warnings = self.frame(elf, call, *options)
                self.assertEqual((frame["function"], frame["file"].rsplit("/", 1)[-1], warnings), ("leak_list", "leaky.c", []))
                self.assertEqual((frame["offset"], frame["module"]), (call - 1, "/opt/app/leaky"))
            self.assertEqual(self.frame(elf, call)[0]["function"], "")

    def test_the_call_is_looked_up_not_what_is_behind_it(self):
        for elf in self.each_target():
            returned_to = elf.call_in("end_with_a_call")
            frame, warnings = self.frame(elf, returned_to, "--map", f"/opt/app/leaky={elf.path}")
            self.assertEqual((frame["function"], frame["offset"], warnings), ("end_with_a_call", returned_to - 1, []))

    def test_every_call_as_addr2line_tells_it(self):
        for elf in self.each_target():
            calls = [address for _, address in elf.calls()]
            records = [self.layout.record(MALLOC, ALLOCATED, 16 * i, 10, [BASE + address], seq=i) for i, address in enumerate(calls, 1)]
            log = self.write(self.layout.log(records, maps=elf.maps("/opt/leaky"), time=1))
            events = self.json("events", log, "--map", f"/opt/leaky={elf.path}")["events"]
            self.assertEqual(len(events), len(calls))
            for event, call in zip(events, calls):
                told = output(f"{elf.prefix}addr2line", "-fie", elf.path, hex(call - 1)).splitlines()
                lines = [re.search(r":(\d+|\?)", line)[1] for line in told[1::2]]
                if "?" not in lines:
                    self.assertEqual([(frame["function"], str(frame["line"])) for frame in event["frames"]],
                                     list(zip(told[::2], lines)))

    def test_a_file_that_was_built_anew(self):
        """Of the same size; a few of the addresses follow calls in it by chance."""
        for elf in self.each_target():
            calls = [address for _, address in elf.calls()]
            text = next(line.split() for line in output(f"{elf.prefix}objdump", "-h", elf.path).splitlines() if " .text " in line)
            size, offset = int(text[2], 16), int(text[5], 16)
            content = bytearray(elf.path.read_bytes())
            code = content[offset:offset + size]
            content[offset:offset + size] = code[64:] + code[:64]
            other = self.folder / f"{elf.prefix}other"
            other.write_bytes(content)
            records = [self.layout.record(MALLOC, ALLOCATED, 16 * i, 10, [BASE + call], seq=i) for i, call in enumerate(calls, 1)]
            log = self.write(self.layout.log(records, maps=elf.maps("/opt/leaky"), time=1))
            document = self.json("leaks", log, "--map", f"/opt/leaky={other}")
            self.assertEqual({frame["function"] for site in document["sites"] for frame in site["frames"]}, {""})
            self.assertEqual(len(document["warnings"]), 1)
            self.assertRegex(document["warnings"][0], rf"other is another build than the /opt/leaky of the log: \d+ of {len(calls)} ")

    def test_an_address_that_follows_no_call(self):
        for elf in self.each_target():
            frame, warnings = self.frame(elf, elf.functions()["leak_list"] + 4, "--map", f"/opt/app/leaky={elf.path}")
            self.assertEqual(frame["function"], "")
            self.assertRegex(warnings[0], "follows no call there")

    def test_split_debug_files(self):
        for elf in self.each_target():
            call = elf.call_in("leak_buffer")
            plain, debug = self.stripped(elf, self.folder / elf.prefix)
            rename = ["--map", f"/opt/app/leaky={plain}"]
            self.assertEqual(self.frame(elf, call, *rename)[0]["text"], f"leaky+0x{call - 1:x}")
            frame, _ = self.frame(elf, call, *rename, "--debug-dir", plain.parent / "debug")
            self.assertEqual((frame["function"], frame["line"] > 0), ("leak_buffer", True))
            # By debug link, from beside the file; a file with another checksum is not taken.
            output(f"{elf.prefix}objcopy", "-R", ".note.gnu.build-id", plain)
            beside = plain.parent / "leaky.debug"
            shutil.copy(debug, beside)
            output(f"{elf.prefix}objcopy", f"--add-gnu-debuglink={beside}", plain)
            self.assertEqual(self.frame(elf, call, *rename)[0]["function"], "leak_buffer")
            with beside.open("ab") as file:
                file.write(b"changed")
            self.assertEqual(self.frame(elf, call, *rename)[0]["function"], "")

    def test_a_file_that_cannot_be_the_mapped_one_is_refused(self):
        for elf in self.each_target():
            call = elf.call_in("leak_list")
            log = self.write(self.layout.log([self.layout.record(MALLOC, ALLOCATED, 0x1000, 10, [BASE + call])],
                                             maps=elf.maps("/opt/leaky").replace("-5655", "-5656"), time=1))
            document = self.json("leaks", log, "--map", f"/opt/leaky={elf.path}")
            self.assertEqual(document["sites"][0]["frames"][0]["function"], "")
            self.assertRegex(document["warnings"][0], r"is not the /opt/leaky of the log: .*code segment differs")
            self.assertEqual(self.frame(elf, call, "--map", f"/opt/app/leaky={PROGRAMS / 'generate_log'}")[1], [])

    def test_dynamic_symbols_of_a_stripped_library(self):
        for elf in self.each_target():
            library = Elf(f"/usr/{elf.prefix.rstrip('-')}/lib/libc.so.6", elf.prefix)
            start = library.functions("-D")["qsort"]
            call = library.call_in("qsort", f"--start-address={start:#x}", f"--stop-address={start + 200:#x}")
            thumb = 1 if elf.prefix.startswith("arm") else 0  # so is Debian's library compiled
            frame, _ = self.frame(library, call + thumb, path=library.path)
            self.assertEqual(frame["text"], f"qsort+{call - 1 - start:#x} (libc.so.6)")

    def test_broken_files_on_the_desk(self):
        for elf in self.each_target():
            call = elf.call_in("leak_list")
            content = bytearray(elf.path.read_bytes())
            struct.pack_into("<I", content, 28, 0x7FFFFFFF)  # program headers behind the end
            cases = {"empty": b"", "short": bytes(content[:40]), "headers": bytes(content), "text": b"not ELF at all" * 100}
            for name, broken in cases.items():
                path = self.folder / f"{elf.prefix}{name}"
                path.write_bytes(broken)
                self.assertEqual(self.frame(elf, call, "--map", f"/opt/app/leaky={path}")[0]["function"], "", name)


if __name__ == "__main__":
    unittest.main()
