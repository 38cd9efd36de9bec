# SPDX-License-Identifier: Apache-2.0
"""quarl story: the text of events files, from real programs and written by hand, whole and hostile."""

import json
import os
import pty
import re
import shutil
import subprocess
import unittest

from tool import SOURCE, ToolTest, library, victim

HEX = "[0-9a-f]"


def line_of(text):
    """Place of the only line of the victim's source that holds the text."""
    with open(os.path.join(SOURCE, "tests/tool/victim.c"), encoding="utf-8") as source:
        [number] = [number for number, line in enumerate(source, 1) if text in line]
    return f"victim.c:{number}"


def normal(text):
    """Without what differs from run to run."""
    text = re.sub(r"(victim_)\w+\[\d+\]", r"\1[PID]", text)
    text = re.sub(r"thread \d+", "thread TID", text)
    text = re.sub(r"should be( (?!eb be da fe)[0-9a-f]{2}){4}", "should be WORD", text)
    return re.sub(rf"0x{HEX}{{8}}", "ADDRESS", text)


def stories(text):
    """Without the line at the end."""
    lines = text.splitlines(keepends=True)
    return "".join(lines[:-1])


def calls(*places):
    width = max(len(name) for name, _ in places)
    return "".join(f"      {name:<{width}}   {where}\n" for name, where in places)


TWICE = "quarl: victim_[PID]: a block of 40 bytes released twice\n  allocated  #1 by thread TID, malloc\n"
RELEASED = "  released   not recorded; with QUARL_OUTPUT_LOG=1 the record log tells by whom\n"


OVERWRITTEN = "; its innermost calls are overwritten"


def without_innermost(told):
    """Of a block that was released twice the story without its first call: the allocator may have kept its lists there."""
    if OVERWRITTEN in told:
        return told.replace(OVERWRITTEN, "")
    return re.sub(r"(  allocated .*\n)      free_twice .*\n", r"\1", told)


def free_twice(fate="it is ended now"):
    main = ("main", line_of("act(arguments[i]);"))
    made = calls(("free_twice", line_of("void* block = malloc(40);")), ("act", line_of("free_twice();  // act")), main)
    return (TWICE + made + RELEASED + "  found      when it was released again\n" + calls(("free_twice", line_of("free(block);  // again")), ("act", line_of("free_twice();  // act")), main) +
            f"  the thread was stopped there; {fate}\n")


class RealPrograms(ToolTest):
    def told(self, target, *acts):
        """What a run told of its faults, which the file tells again."""
        library(target)
        folder = os.path.join(self.folder, f"logs-{target}-{'-'.join(acts)}")
        result = self.quarl("run", "--logs", folder, "--", victim(target), *acts)
        self.assertEqual(result.returncode, 86, result)
        again = self.quarl("story", os.path.join(folder, "events.jsonl"))
        self.assertEqual(again.returncode, 0, again)
        self.assertEqual(stories(again.stdout), stories(result.stderr))
        return normal(stories(result.stderr))

    def test_each_kind_of_fault(self):
        main = ("main", line_of("act(arguments[i]);"))
        free = ("act", line_of("free(kept);"))
        over = calls(("overrun", line_of("char* block = malloc(size);")), ("act", line_of("overrun(20);")), main)
        under = calls(("underrun", line_of("int* block = malloc(40);")), ("act", line_of("underrun();  // act")), main)
        released = calls(free, main)
        for target in ("i686", "armhf"):
            with self.subTest(target):
                head = "quarl: victim_[PID]: 1 byte written behind a block of 20 bytes\n  allocated  #1 by thread TID, malloc\n"
                tail = "  behind it  78 be da fe, should be eb be da fe\n"
                stopped = "  the thread was stopped there; it is ended now\n"
                self.assertEqual(self.told(target, "tail"), head + over + "  found      when the program ended\n" + tail)
                self.assertEqual(self.told(target, "tail", "free"),
                                 head + over + "  found      when it was released\n" +
                                 self.aligned(released, "overrun") + tail + stopped)
                self.assertEqual(self.told(target, "head", "free"),
                                 "quarl: victim_[PID]: 1 word written in front of a block of 40 bytes\n"
                                 "  allocated  #1 by thread TID, malloc\n" + under + "  found      when it was released\n" +
                                 self.aligned(released, "underrun") +
                                 "  in front   2a 00 00 00, should be WORD, 4 bytes before it\n" + stopped)
                self.assertEqual(without_innermost(self.told(target, "double")), without_innermost(free_twice()))

    def aligned(self, text, longest):
        """Names of a story stand in one column."""
        return "".join(f"      {name:<{len(longest)}}   {where}\n" for name, where in map(str.split, text.splitlines()))

    def test_outermost_frames_of_a_thread_are_left_out(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                outer = ("free_twice_in_thread", line_of("free_twice();  // thread"))
                expected = (TWICE + calls(("free_twice", line_of("void* block = malloc(40);")), outer) + RELEASED +
                            "  found      when it was released again\n" +
                            calls(("free_twice", line_of("free(block);  // again")), outer) +
                            "  the thread was stopped there; it is ended now\n")
                told = re.sub("#[0-9]+", "#1", self.told(target, "thread"))
                self.assertEqual(without_innermost(told), without_innermost(expected))


class Desk(ToolTest):
    """Files of a program that ran elsewhere."""

    def setUp(self):
        super().setUp()
        library("i686")
        self.unstripped = os.path.join(self.folder, "unstripped")
        os.mkdir(self.unstripped)
        shutil.copy(victim("i686"), os.path.join(self.unstripped, "application"))
        self.program = os.path.join(self.folder, "application")
        subprocess.run(["objcopy", "--strip-all", victim("i686"), self.program], check=True)
        self.quarl("run", "--logs", "logs", "--", self.program, "tail")
        self.events = os.path.join(self.folder, "logs/events.jsonl")

    def story(self, *options):
        return self.quarl("story", *options, self.events).stdout

    def test_names_come_from_where_the_files_are(self):
        source = "overrun " + "  " + line_of("char* block = malloc(size);")
        self.assertRegex(self.story(), r"\n      application\+0x[0-9a-f]+\n")
        self.assertIn(source, self.story("--debug-dir", self.unstripped))
        os.makedirs(os.path.join(self.folder, "root" + self.folder))
        os.rename(os.path.join(self.unstripped, "application"), os.path.join(self.folder, "root" + self.program))
        os.unlink(self.program)
        self.assertIn(source, self.story("--sysroot", os.path.join(self.folder, "root")))
        self.assertRegex(self.story(), r"\n      application\+0x[0-9a-f]+\n")

    def test_another_build_is_refused_once(self):
        shutil.copy(victim("static"), self.program)
        told = self.story()
        self.assertEqual(told.count(f"{self.program} is another build than the {self.program} that ran"), 1, told)
        self.assertRegex(told, r"\n      application\+0x[0-9a-f]+\n")


GUARD = "ebbedafe"


class Written(ToolTest):
    """Events files written by hand."""

    def event(self, event, pid=7, **more):
        return json.dumps({"v": 1, "event": event, "pid": pid, "tid": pid, "time": 1.5, **more}) + "\n"

    def loaded(self, pid=7, program="/bin/app", **more):
        return self.event("loaded", pid, program=program, **more)

    def fault(self, kind="tail-overrun", pid=7, address="0x1000", seq=3, size=12, found="check", data=f"00{GUARD[2:]}",
              stops=False, **more):
        block = {"address": address, "size": size, "operation": "malloc", "seq": seq, "thread": pid}
        return self.event("fault", pid, kind=kind, found=found, block=block, stops=stops,
                          bytes=[{"at": "0x100c", "found": data, "expected": GUARD}], **more)

    def tell(self, *lines, status=0, errors=""):
        path = self.write("events.jsonl", b"".join(x if isinstance(x, bytes) else x.encode() for x in lines))
        result = self.quarl("story", path)
        self.assertEqual((result.returncode, result.stderr), (status, errors))
        return result.stdout

    def heads(self, text):
        return [line for line in text.splitlines() if line.startswith("quarl: ")]

    def test_how_much_was_written(self):
        for data, text in (("00bedafe", "1 byte written"), ("0000dafe", "2 bytes written"),
                           ("eb00dafe", "1 byte written"), ("00000000", "at least 4 bytes written"),
                           ("ebbeda00", "at least 1 byte written"), ("", "memory was written"),
                           ("0000", "memory was written"), (GUARD, "memory was written")):
            with self.subTest(data):
                told = self.tell(self.loaded(), self.fault(data=data))
                self.assertEqual(self.heads(told)[0], f"quarl: app[7]: {text} behind a block of 12 bytes")

    def test_released_block(self):
        block = {"address": "0x1000", "size": 1, "operation": "calloc", "thread": 8, "allocated": [[None, 0x5000]],
                 "released": [[None, 0x6000], [4, 9]]}
        told = self.tell(self.loaded(), self.event("fault", kind="double-free", found="resize", block=block, stops=True),
                         self.event("ended", thread=7))
        self.assertEqual(stories(told), "quarl: app[7]: a block of 1 byte resized after its release\n"
                         "  allocated  by thread 8, calloc\n      0x00005000\n"
                         "  released\n      0x00006000\n      0x00000009\n" +
                         "  found      when it was resized\n  the thread was stopped there; it is ended now\n")

    def test_crash_and_the_block_near_it(self):
        for relation, distance, text in (("inside", 4, "4 bytes into"), ("behind", 20, "8 bytes behind the end of"),
                                         ("before", -1, "1 byte in front of"), ("released", 0, "0 bytes into")):
            near = {"address": "0x1000", "size": 12, "operation": "malloc", "seq": 2, "relation": relation,
                    "distance": distance}
            told = self.tell(self.loaded(), self.event("crash", signal=11, at="0x1014", pc=[None, 16], near=near))
            end = " that was released" if relation == "released" else ""
            self.assertEqual(stories(told), "quarl: app[7]: ended by SIGSEGV: no access to 0x00001014\n"
                             f"  in         thread 7\n      0x00000010\n  address    {text} a block of 12 bytes{end}\n"
                             "  allocated  #2, malloc\n")
            self.assertTrue(told.endswith("quarl: no faults; 1 crash; what was kept is not known\n"), told)

    def test_blocks_of_which_little_is_known(self):
        """Nothing is said of them that is not there; and where the answer is."""
        def told(kind, block, *before):
            return self.tell(self.loaded(), *before, self.event("fault", kind=kind, found="release", block=block, bytes=[]))
        head = told("head-overrun", {"address": "0x1000", "damaged": True})
        self.assertEqual(stories(head), "quarl: app[7]: memory was written in front of the block at 0x00001000\n"
                         "  allocated  not known: its header is damaged\n  found      when it was released\n")
        twice = told("double-free", {"address": "0x1000"})
        self.assertEqual(stories(twice), "quarl: app[7]: the block at 0x00001000 released twice\n"
                         "  allocated  not known any more: its memory was used since\n" + RELEASED +
                         "  found      when it was released again\n")
        block = {"address": "0x1000", "size": 5, "operation": "malloc", "lost": 2}
        twice = told("double-free", block, self.event("log", kind="record", path="/l/app_7_quarlAll.log"))
        self.assertEqual(stories(twice), "quarl: app[7]: a block of 5 bytes released twice\n"
                         "  allocated  malloc; its innermost calls are overwritten\n"
                         "  released   the record log tells by whom: quarl report events --address 0x1000 /l/app_7_quarlAll.log\n"
                         "  found      when it was released again\n")
        near = {"address": "0x1000", "damaged": True, "distance": 20}
        crash = self.tell(self.loaded(), self.event("crash", signal=11, at="0x1014", near=near))
        self.assertEqual(stories(crash), "quarl: app[7]: ended by SIGSEGV: no access to 0x00001014\n  in         thread 7\n"
                         "  address    20 bytes behind the first byte of the block at 0x00001000\n"
                         "  allocated  not known: its header is damaged\n")

    def test_other_events(self):
        told = self.tell(
            self.loaded(), self.event("limit", kind="heap", limit=1000, held=900, request=200, trace=[[None, 16]]),
            self.event("trouble", what="log", text="the log could not be written", path="/x/a.log", error="No space left"),
            self.event("snapshot", kind="dump", path="/x/b.log", blocks=2, bytes=20, mappings=0),
            self.event("news", what="of a later version", dropped=3), self.event("confined", faults=0, blocks=1, bytes=5))
        self.assertEqual(told, "quarl: app[7]: the log could not be written: /x/a.log: No space left\n"
                         "quarl: app[7]: 20 bytes in 2 blocks are held now: /x/b.log\n"
                         "quarl: app[7]: 3 events could not be written and cannot be told\n"
                         "quarl: app[7]: sets itself a filter of system calls: from now on nothing can be told of it\n"
                         "quarl: app[7]: the limit of the heap is reached: 1000 bytes\n  held       900 bytes\n"
                         "  asked for  200 bytes, by thread 7\n      0x00000010\n"
                         "  the thread is stopped there; signal 60 ends it\n"
                         "quarl: no faults; 5 bytes in 1 block never given back; more: quarl report leaks /x/b.log\n")

    def test_one_fault_is_one_story(self):
        told = self.tell(self.loaded(), self.fault(), self.fault(found="exit"), self.fault(seq=4), self.fault(address="0x2000"),
                         self.loaded(8, parent=7), self.fault(pid=8, found="exit"), self.fault(pid=8, address="0x3000"),
                         self.loaded(7, "/bin/other"), self.fault(),
                         self.event("exit", faults=5, blocks=0, bytes=0), self.event("exit", 8, blocks=2, bytes=7))
        heads = self.heads(told)
        self.assertEqual([head.split(":")[1].strip() for head in heads[:-1]], ["app[7]"] * 3 + ["app[8]", "other[7]"])
        self.assertEqual(heads[-1], "quarl: 5 faults, reported 7 times; what was kept is not known; 7 bytes in 2 blocks in "
                         "1 other process")

    def test_what_became_of_the_thread(self):
        for after, text in (([self.event("ended", thread=7)], "the thread was stopped there; it is ended now"),
                            ([self.event("exit", blocks=0, bytes=0)], "the thread was stopped there; the process has ended"),
                            ([self.loaded()], "the thread was stopped there; the process has ended"),
                            ([], "the thread is stopped there; signal 60 ends it")):
            told = self.tell(self.loaded(), self.fault(stops=True), self.event("parked", thread=7, why="fault"), *after)
            self.assertIn(f"\n  {text}\n", told)

    def test_logs_are_named_as_they_lie_here(self):
        self.write("app_7_quarl.log", "")
        end = [self.event("snapshot", kind="exit", path="/board/app_7_quarl.log", blocks=1, bytes=1),
               self.event("exit", faults=0, blocks=1, bytes=1)]
        self.assertEqual(self.tell(self.loaded(), *end), "quarl: no faults; 1 byte in 1 block never given back; "
                         f"more: quarl report leaks {self.folder}/app_7_quarl.log\n")

    def test_lines_that_are_no_events(self):
        name = os.path.join(self.folder, "events.jsonl")
        end = "no faults; what was kept is not known\n"
        fault, good = self.fault(), self.loaded()
        torso = fault[:100]
        many = "[" * 30000 + "\n"
        for lines, complaint, stories_told in (
                ([good, "{\n", "\n", fault, "nothing\n"], f"{name}:2: this line is no event, nor are 1 more", 1),
                ([good, torso], f"{name} ends within a line", 0), ([good, torso, fault], "", 1),
                ([good, "x" * 70000 + "\n", fault], f"{name}:2: this line is no event", 1),
                ([good, many, fault], f"{name}:2: this line is no event", 1),
                ([good, b"\xff\xfe\0\n", fault], f"{name}:2: this line is no event", 1),
                ([good, fault.replace('"v": 1', '"v": 2')], f"{name}:2: this line is no event", 0),
                ([good, fault.replace('"pid": 7', '"pid": -7')], f"{name}:2: this line is no event", 0),
                ([good, fault.replace('"pid": 7', '"pid": 1e99')], f"{name}:2: this line is no event", 0)):
            with self.subTest(lines=str(lines)[-60:]):
                told = self.tell(*lines, errors=f"quarl story: {complaint}\n" if complaint else "")
                self.assertEqual(told.count("written behind"), stories_told)
                self.assertTrue(told.endswith(end.replace("no faults", "1 fault" if stories_told else "no faults")), told)
        self.tell("", status=1, errors=f"quarl story: {name} holds no event\n")

    def test_values_that_make_no_sense(self):
        """Every key with every kind of value: nothing is told that is not there, and nothing fails."""
        strange = [None, True, -1, 2**64, 1e308, "", "0x", "0xfffffffffffffffff", "zz", [], [[]], [[1]], [["a", "b"]], {}, [{}]]
        lines = [self.loaded(), self.event("module", id=1, path="relative", build_id=5)]
        for value in strange:
            for kind in ("loaded", "module", "log", "fault", "crash", "parked", "ended", "limit", "snapshot", "agent",
                         "trouble", "exit"):
                keys = ("program", "parent", "id", "path", "build_id", "kind", "found", "block", "bytes", "trace", "stops",
                        "signal", "at", "pc", "near", "thread", "why", "limit", "held", "request", "blocks", "port", "text")
                lines.append(self.event(kind, **{key: value for key in keys}))
                block = {key: value for key in ("address", "size", "seq", "thread", "allocated", "released", "distance")}
                lines.append(self.event(kind, kind="head-overrun", block=block, near=block, bytes=[block], trace=[[1, 2**63]]))
        self.assertIn("quarl: ", self.tell(*lines))

    def test_no_text_steers_the_terminal(self):
        told = self.tell(self.loaded(program="/bin/a\x1b[31m\x07b\u009bc"), self.fault(),
                         self.event("trouble", text="two\nlines\r", path="/x\x7f\udcffy"))
        self.assertIn("quarl: a?[31m?b??c[7]: two?lines?: /x??y\n", told)

    def test_path_that_is_no_text(self):
        """Its bytes come as halves of pairs; a file of that name is found."""
        folder = os.fsencode(self.folder) + b"/\xff\xc3"
        os.mkdir(folder)
        shutil.copy(victim("i686"), folder + b"/victim")
        notes = subprocess.run(["readelf", "-n", victim("i686")], capture_output=True, text=True, check=True).stdout
        table = subprocess.run(["nm", victim("i686")], capture_output=True, text=True, check=True).stdout
        act = int(re.search(r"^(\w+) [tT] free_twice$", table, re.M)[1], 16)
        module = self.event("module", id=1, path=os.fsdecode(folder) + "/victim", build_id=re.search(r"ID: (\w+)", notes)[1])
        self.assertIn("\\udcff", module)
        self.assertIn("free_twice   victim.c:", self.tell(self.loaded(), module, self.fault(trace=[[1, act + 3]])))

    def test_follows_a_file_that_grows(self):
        path = self.write("events.jsonl", self.loaded() + self.loaded(8, "/bin/other"))
        follow = self.start("story", "--follow", path)
        with open(path, "a", encoding="utf-8") as file:
            fault = self.fault(pid=8)
            for piece in (fault[:50], fault[50:] + self.fault(stops=True)[:30], self.fault(stops=True)[30:],
                          self.event("ended", thread=7)):
                file.write(piece)
                file.flush()
        told = self.read_until(follow.stdout, "it is ended now")
        self.assertEqual([head[:16] for head in self.heads(told)], ["quarl: other[8]:", "quarl: app[7]: 1"])
        follow.terminate()

    def test_reads_a_pipe(self):
        told = self.start("story", "-")
        told.stdin.write((self.loaded() + self.fault()).encode())
        told.stdin.flush()
        self.read_until(told.stdout, "should be")
        told.stdin.close()
        self.read_until(told.stdout, "quarl: 1 fault;")
        self.assertEqual(told.wait(), 0)

    def test_colours_on_terminals_only(self):
        path = self.write("events.jsonl", self.loaded() + self.fault())
        for environment, coloured in (({"TERM": "xterm"}, True), ({"TERM": "dumb"}, False),
                                      ({"TERM": "xterm", "NO_COLOR": "1"}, False)):
            main, terminal = pty.openpty()
            self.quarl("story", path, stdout=terminal, env=self.environment | environment)
            os.close(terminal)
            self.assertEqual(b"\x1b[" in os.read(main, 65536), coloured, environment)
            os.close(main)


if __name__ == "__main__":
    unittest.main()
