# SPDX-License-Identifier: Apache-2.0
"""Code of libraries that had gone when the log's map was written, by the events of the process."""

import json
import os
import unittest

from log_builder import ALLOCATED, MALLOC
from support import ReportTest
from test_symbols import BASE, Elf, built, output

PID = 4242  # of log_builder


def event(kind, pid=PID, **keys):
    return {"v": 1, "event": kind, "pid": pid, "tid": pid, "time": 1000.5, **keys}


def module(path, build_id="", address=BASE, number=1, pid=PID):
    identity = {"build_id": build_id} if build_id else {}
    return event("module", pid, id=number, path=path, address=f"{address:#x}", bias=f"{address:#x}", **identity)


class NoFile(ReportTest):
    def test_only_files_are_waited_for(self):
        log = self.write(self.layout.log([self.layout.record(MALLOC, ALLOCATED, 0x1000, 10, [0x8001])], time=1))
        beside = self.folder / "events.jsonl"
        for make in (os.mkfifo, os.mkdir, lambda path: path.symlink_to("/dev/zero")):
            make(beside)
            for verb in ("leaks", "timeline"):
                self.report(verb, log)
                self.assertIn("not a regular file", self.report(verb, log, "--events", beside, status=2)[1])
            os.rmdir(beside) if beside.is_dir() else beside.unlink()
        self.assertIn("no file", self.report(log, "--events", beside, status=2)[1])


class Events(ReportTest):
    def setUp(self):
        super().setUp()
        self.elves = built()
        if not self.elves:
            self.skipTest("no cross compiler built the sample programs")

    def frame(self, elf, call, events, *options, maps="", name="events.jsonl"):
        """The frame of a trace that returns to `call`, and the warnings; `events` are lines or objects."""
        (self.folder / name).write_text("".join((one if isinstance(one, str) else json.dumps(one)) + "\n" for one in events))
        log = self.write(self.layout.log([self.layout.record(MALLOC, ALLOCATED, 0x1000, 10, [BASE + call])], maps=maps, time=1))
        document = self.json("leaks", log, "--map", f"/opt/leaky={elf.path}", *options)
        return document["sites"][0]["frames"][-1], document["warnings"]

    def named(self, elf, call, *rest, **more):
        found, warnings = self.frame(elf, call, *rest, **more)
        return found["function"], found["line"] > 0, found["module"], found["offset"], warnings

    def module_of(self, elf, path="/opt/leaky", **keys):
        return module(path, self.build_id(elf), **keys)

    def build_id(self, elf):
        return output(f"{elf.prefix}readelf", "-n", elf.path).split("Build ID: ")[1].split()[0]

    def test_a_library_that_was_unloaded_is_named(self):
        for elf in self.elves:
            call = elf.call_in("leak_list")
            whole = ("leak_list", True, "/opt/leaky", call - 1, [])
            events = ["no JSON", "[1]", '{"pid": 4242}', event("loaded", program="/opt/app"), self.module_of(elf)]
            self.assertEqual(self.named(elf, call, events), whole)
            self.assertEqual(self.named(elf, call, [], "--events", self.folder / "other", name="other")[0], "")
            self.assertEqual(self.named(elf, call, events, "--events", self.folder / "other", name="other"), whole)
            (self.folder / "other").unlink()
            # Of another process, of what the process was before exec, nonsense
            for wrong in ([self.module_of(elf, pid=PID + 1)], [*events, event("loaded", program="/opt/next")],
                          [self.module_of(elf) | {"bias": "0xfffffffff"}], [self.module_of(elf) | {"address": 7}]):
                self.assertEqual(self.named(elf, call, wrong)[:3], ("", False, ""))

    def test_the_program_that_wrote_the_log_counts(self):
        for elf in self.elves:
            call = elf.call_in("leak_list")
            maps = "08048000-08049000 r-xp 00000000 00:00 1    /opt/app\n"
            events = [event("loaded", program="/opt/app"), self.module_of(elf), event("loaded", program="/opt/next")]
            self.assertEqual(self.named(elf, call, events, maps=maps)[0], "leak_list")

    def test_another_build_is_refused_with_one_warning(self):
        """Also where the file is mapped still, and its code looks right."""
        for elf in self.elves:
            calls = [elf.call_in("leak_list"), elf.call_in("leak_buffer")]
            for maps in ("", elf.maps("/opt/leaky")):
                (self.folder / "events.jsonl").write_text(json.dumps(module("/opt/leaky", "00112233")) + "\n")
                records = [self.layout.record(MALLOC, ALLOCATED, 16 * i, 10, [BASE + call]) for i, call in enumerate(calls, 1)]
                log = self.write(self.layout.log(records, maps=maps, time=1))
                document = self.json("leaks", log, "--map", f"/opt/leaky={elf.path}")
                self.assertEqual({frame["function"] for site in document["sites"] for frame in site["frames"]}, {""})
                self.assertEqual(document["warnings"],
                                 [f"{elf.path} is another build than the /opt/leaky that ran: its names are not used"])

    def test_of_two_at_one_place_the_one_with_the_call(self):
        """The later one when both have one; what is mapped now comes before both."""
        for elf in self.elves:
            shifted = self.shifted(elf)
            both = [self.module_of(elf), self.module_of(shifted, "/opt/shifted", number=2)]
            calls, others = ({call for _, call in each.calls()} for each in (elf, shifted))
            only, common = elf.call_in("leak_list"), min(calls & others)
            self.assertNotIn(only, others)
            way = ("--map", f"/opt/shifted={shifted.path}")
            for maps in ("", shifted.maps("/opt/shifted")):
                self.assertEqual(self.named(elf, only, both, *way, maps=maps)[::2], ("leak_list", "/opt/leaky", []))
                self.assertEqual(self.frame(elf, common, both, *way, maps=maps)[0]["module"], "/opt/shifted")
            self.assertEqual(self.frame(elf, common, both, *way, maps=elf.maps("/opt/leaky"))[0]["module"], "/opt/leaky")
            self.assertEqual(self.frame(elf, common, both[::-1], *way)[0]["module"], "/opt/leaky")

    def shifted(self, elf):
        """The same file with its code 64 bytes further, so that calls end elsewhere."""
        text = next(line.split() for line in output(f"{elf.prefix}objdump", "-h", elf.path).splitlines() if " .text " in line)
        size, offset = int(text[2], 16), int(text[5], 16)
        content = bytearray(elf.path.read_bytes())
        code = content[offset:offset + size]
        content[offset:offset + size] = code[-64:] + code[:-64]
        path = self.folder / f"{elf.prefix}shifted"
        path.write_bytes(content)
        return Elf(path, elf.prefix)

    def test_a_library_that_the_desk_does_not_have(self):
        [elf, *_] = self.elves
        gone = [module("/opt/gone", address=BASE - 0x10000), module("/opt/other", address=BASE + 0x10000)]
        frame, warnings = self.frame(elf, 0x100, gone)
        self.assertEqual((frame["module"], frame["offset"], frame["text"], warnings),
                         ("/opt/gone", 0x100FF, "gone+0x100ff", []))
        between = [module("/opt/between", address=BASE - 0x1000), *gone]
        self.assertEqual(self.frame(elf, 0x100, between)[0]["module"], "/opt/between")
        mapped = f"{BASE - 0x2000:x}-{BASE - 0x1000:x} rw-p 00000000 00:00 0 \n"
        self.assertEqual(self.frame(elf, 0x100, gone, maps=mapped)[0]["module"], "")


if __name__ == "__main__":
    unittest.main()
