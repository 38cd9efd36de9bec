# SPDX-License-Identifier: Apache-2.0
"""Ends by signals with QUARL_END_SIGNALS=1: the logs, the words on standard error, and the status that the parent sees."""

import json
import os
import re
import signal
import subprocess
import unittest

import case
import core_file
import symbols
from log_file import read_log
from promise import promise

TOLD = {"QUARL_END_SIGNALS": "1"}
NEVER_GIVEN_BACK = 123
ASKED = ("SIGTERM", "SIGINT", "SIGHUP", "SIGQUIT")
# what the kernel names an instruction's fault, where the victim makes one
CRASHES = {"null": "SIGSEGV", "wild": "SIGSEGV", "behind": "SIGSEGV", "inside": "SIGSEGV", "bus": "SIGBUS", "trap": "SIGILL",
           "abort": "SIGABRT", "allocator": "SIGABRT"}
STORY = re.compile(r"quarl: (SIG[A-Z]+) ends process (\d+) in thread (\d+)(?:, address 0x([0-9a-f]+))?(?:, at 0x([0-9a-f]+))?\n"
                   r"(?:quarl: called from((?: 0x[0-9a-f]+)+)\n)?")
BLOCK = re.compile(r"quarl: the address is (?:byte (\d+) of|(\d+) bytes (behind|in front of)) a block of (\d+) bytes "
                   r"at 0x([0-9a-f]+), malloc #(\d+) by thread (\d+)\nquarl: allocated from((?: 0x[0-9a-f]+)+)\n")
GIVEN_UP = "quarl: another thread does not leave the checker, the logs are not written\n"


EMULATOR = re.compile(r"qemu: uncaught target signal .*\n")  # its own words, with or without the checker


def addresses(text):
    return [int(word, 16) for word in (text or "").split()]


class EndSignals(case.Case):
    def ends(self, *arguments, **options):
        return self.run_victim("ends", *arguments, **({"environment": TOLD} | options))

    def bare_status(self, way):
        return self.ends(way, environment={}, preload=False).finish()

    def log_of(self, process, program="ends", pid=None):
        name = f"{self.target.process_name(program)}_{pid or process.pid}_quarl.log"
        return read_log(self.directory / name)

    def sizes(self, log):
        return [record.size for record in log.records]

    def names(self, log, trace):
        return symbols.names(self.target, log, trace)

    @promise("With `QUARL_END_SIGNALS=1` a signal that ends the process by its default action (`SIGTERM`, `SIGINT`, `SIGHUP`, "
             "`SIGQUIT`; `SIGSEGV`, `SIGBUS`, `SIGABRT`, `SIGFPE`, `SIGILL`) finds the logs written as at exit, and ends it then as it would "
             "have: the parent sees the same status.")
    def test_whoever_asks_for_the_end_finds_whole_logs(self):
        for name in ASKED:
            for config, kind in (("", "quarl"), ("QUARL_OUTPUT_LOG=1", "quarlAll")):
                with self.subTest(name, config=config):
                    driver = self.driver(config, environment=TOLD)
                    held = {int(driver.malloc(10 + i)): 10 + i for i in range(200)}
                    for block in list(held)[::3]:
                        driver.free(block)
                        del held[block]
                    driver.signal(getattr(signal, name))
                    self.assertEqual((driver.finish(), driver.out, EMULATOR.sub("", driver.err)), (-getattr(signal, name), "", ""))
                    log = read_log(self.log_path(driver, kind))
                    live = {}
                    for record in log.records:
                        live[record.address] = record.size
                        if record.kind != 1:
                            del live[record.address]
                    self.assertEqual({block: live.get(block) for block in held}, held)
                    if not config:
                        self.assertEqual(log.record_count, len(log.records))

    @promise("A signal that is sent and comes while its thread is inside the checker waits until it has left, a second at most.")
    def test_end_of_a_busy_process(self):
        """Threads are in the middle of writing records: the file ends with a whole one, none is there twice."""
        for name in ("SIGTERM", "SIGABRT", "SIGSEGV") * 2:
            process = self.ends("busy", config="QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=2800")
            process.said("busy")
            process.signal(getattr(signal, name))
            self.assertEqual(process.finish(), -getattr(signal, name))
            [path] = self.directory.glob(f"*_{process.pid}_quarlAll.log")
            made = [record.seq_num for record in read_log(path).records if record.kind == 1]
            self.assertTrue(made)
            self.assertEqual(len(made), len(set(made)))
            path.unlink()

    @promise("A crash is told first, as an event or on standard error: the signal, the address, the calls that led there, and the "
             "block that the address lies in or next to.")
    def test_each_crash_is_told_and_ends_as_it_would_have(self):
        for way, name in CRASHES.items():
            with self.subTest(way):
                process = self.ends(way)
                status = process.finish()
                self.assertEqual(status, -getattr(signal, name))
                self.assertEqual(status, self.bare_status(way))
                story = STORY.search(process.err)
                self.assertEqual((story[1], int(story[2]), int(story[3])), (name, process.pid, process.pid))
                log = self.log_of(process)
                self.assertIn(NEVER_GIVEN_BACK, self.sizes(log))
                calls = self.names(log, addresses(story[6]))
                if name in ("SIGSEGV", "SIGBUS") and way != "wild":
                    self.assertEqual(symbols.function_of(self.target, log, int(story[5], 16) + 1), "write_at")
                    self.assertEqual(calls, [way, "go", "main"])
                elif name != "SIGABRT":  # the C library's own code has no frame pointers
                    self.assertEqual(calls, (["wild"] if way == "wild" else []) + ["go", "main"])
                self.assertEqual(story[4], {"null": "0", "wild": "10"}.get(way, story[4]))

    @promise("A crash is told first, as an event or on standard error: the signal, the address, the calls that led there, and the "
             "block that the address lies in or next to.")
    def test_block_that_the_address_lies_in_or_next_to(self):
        for way, size in (("behind", 200000), ("inside", 300000)):
            with self.subTest(way):
                process = self.ends(way, config="QUARL_SLOPOVER_EXIT=0")
                process.finish()
                [block], story, told = process.said("block"), STORY.search(process.err), BLOCK.search(process.err)
                at = int(story[4], 16)
                self.assertEqual((int(told[4]), int(told[5], 16), int(told[7])), (size, block, process.pid))
                if way == "inside":
                    self.assertEqual((at - block, int(told[1])), (8192, 8192) if block % 4096 == 0 else (at - block, at - block))
                else:
                    self.assertEqual((int(told[2]), told[3]), (at - block - size, "behind"))
                self.assertEqual(self.names(self.log_of(process), addresses(told[8])), ["malloc", way, "go", "main"])
                self.assertEqual(process.err[: story.end()] + process.err[told.start():], process.err)

    @promise("A core file shows the place of the crash.")
    def test_core_file(self):
        core_file.skip_where_they_go_elsewhere(self)
        for way, name in (("null", "SIGSEGV"), ("abort", "SIGABRT")):
            process = self.ends(way, before_start=core_file.allow)
            process.finish()
            core = core_file.take(self)
            line = ["gdb-multiarch", "-nx", "-batch", "-ex", f"set sysroot {self.target.sysroot()}", "-ex", "p/x $pc", "-ex",
                    "backtrace", self.target.victim("ends"), core]
            shown = subprocess.run(line, capture_output=True, text=True, check=True).stdout
            story = STORY.search(process.err)
            self.assertIn(f"Program terminated with signal {name}", shown)
            self.assertNotIn("handle_end_signal", shown)
            self.assertEqual(int(re.search(r"\$1 = 0x([0-9a-f]+)", shown)[1], 16), int(story[5], 16))

    @promise("The stack may have overflowed, that of the main thread or of another that has allocated: the checker works on stacks of its "
             "own, and the program's own alternate stack stays what it is.")
    def test_stack_overflow(self):
        for way in ("overflow", "small_stack", "thread_overflow", "child_overflow"):
            with self.subTest(way):
                process = self.ends(way)
                self.assertEqual(process.finish(), -signal.SIGSEGV)
                story = STORY.search(process.err)
                log = self.log_of(process, pid=int(story[2]))
                self.assertEqual(way in ("overflow", "small_stack"), story[2] == story[3])
                calls = self.names(log, addresses(story[6]))
                self.assertEqual((len(calls), set(calls)), (64, {"fall"}))
                self.assertIn(NEVER_GIVEN_BACK, self.sizes(log))

    @promise("A crash of several threads at once, or while the checker itself is at work, ends the process all the same.")
    def test_crashes_at_once(self):
        for _ in range(5):
            process = self.ends("threads")
            self.assertEqual(process.finish(), -signal.SIGSEGV)
            self.assertEqual(len(STORY.findall(process.err)), 1)
            self.assertIn(NEVER_GIVEN_BACK, self.sizes(self.log_of(process)))

    @promise("A crash of several threads at once, or while the checker itself is at work, ends the process all the same.")
    def test_crash_with_the_lock_held(self):
        """In the check of the heap, and again in the walks for the block and for the log."""
        process = self.ends("checker")
        self.assertEqual(process.finish(), -signal.SIGSEGV)
        self.assertEqual(len(STORY.findall(process.err)), 1)

    def driver_that_holds_the_lock(self):
        """A driver, and its thread that stands in the checker with a report that nobody reads."""
        driver = self.driver("QUARL_SLOPOVER_EXIT=0", environment=TOLD)
        worker = driver.spawn()
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        driver.fill_output()
        worker.send("check")
        driver.await_that(lambda: worker.tid in driver.tasks_that_wait("pipe_w"), "a full pipe")
        return driver, worker

    @promise("A thread that holds up the checker, because nobody reads what it prints, holds up the end for a second; the logs are not "
             "written then, and standard error says so.")
    def test_lock_that_is_never_released(self):
        driver, worker = self.driver_that_holds_the_lock()
        driver.signal(signal.SIGTERM)
        self.assertEqual((driver.popen.wait(60), driver.await_match(GIVEN_UP, "err")[0]), (-signal.SIGTERM, GIVEN_UP))

    @promise("A signal that is sent and comes while its thread is inside the checker waits until it has left, a second at most.")
    def test_signal_for_the_thread_that_stands_in_the_checker(self):
        """It is put off, in vain; the log is written by the very thread that holds the lock."""
        driver, worker = self.driver_that_holds_the_lock()
        driver.signal(signal.SIGTERM, worker.tid)
        self.assertEqual(driver.popen.wait(60), -signal.SIGTERM)
        self.assertIn(10, self.sizes(self.log_of(driver, "driver")))

    @promise("A signal that is sent and comes while its thread is inside the checker waits until it has left, a second at most.")
    def test_signal_that_comes_inside_the_checker_waits_for_its_end(self):
        """A dump is under way, whose text nobody reads for a while; the log holds all when it is over."""
        driver = self.driver("QUARL_SLOPOVER_EXIT=0", environment=TOLD)
        for _ in range(2000):
            driver.malloc(20)
        for _ in range(20):
            driver.send(f"raise {int(signal.SIGUSR1)}")
        driver.signal(signal.SIGTERM)
        self.assertEqual(driver.finish(), -signal.SIGTERM)
        self.assertEqual(self.sizes(self.log_of(driver, "driver")).count(20), 2000)

    @promise("Ignored signals stay ignored, and a handler of the program has the signal.",
             "To the program the default action is `SIG_DFL`, where it asks what is installed, puts back what it found, or sets it.")
    def test_actions_of_the_program(self):
        for way, number, handled in (("own", signal.SIGTERM, 1), ("restored", signal.SIGTERM, 0), ("suspended", signal.SIGTERM, 0)):
            with self.subTest(way):
                process = self.ends(way)
                self.assertEqual((process.finish(), process.err), (-number, ""))
                self.assertEqual(process.text["said"].count("handled"), handled)
                if way == "own":
                    self.assertEqual(process.said("shown"), [0] * 5)
                self.assertIn(NEVER_GIVEN_BACK, self.sizes(self.log_of(process)))

    @promise("Ignored signals stay ignored, and a handler of the program has the signal.")
    def test_inherited_ignored(self):
        def ignore():
            signal.signal(signal.SIGHUP, signal.SIG_IGN)
        driver = self.driver("QUARL_SLOPOVER_EXIT=0", environment=TOLD, before_start=ignore)
        driver.do(f"raise {int(signal.SIGHUP)}")
        self.assert_ends(driver)

    def test_children(self):
        process = self.ends("child")
        self.assertEqual(process.finish(), 7)
        [child], [status] = process.said("child"), process.said("status")
        self.assertEqual(os.WTERMSIG(status), signal.SIGSEGV)
        self.assertEqual([int(story[1]) for story in STORY.findall(process.err)], [child])
        self.assertIn(77, self.sizes(self.log_of(process, pid=child)))
        process = self.ends("borrowed")
        self.assertEqual((process.finish(), process.err), (7, ""))
        self.assertIn(NEVER_GIVEN_BACK, self.sizes(self.log_of(process)))

    def test_unset_nothing_changes(self):
        for environment in ({}, {"QUARL_END_SIGNALS": "0"}):
            process = self.ends("null", environment=environment)
            self.assertEqual((process.finish(), EMULATOR.sub("", process.err)), (-signal.SIGSEGV, ""))
            self.assertEqual(self.sizes(self.log_of(process)), [])
            process = self.ends("own", environment=environment)
            self.assertEqual((process.finish(), process.said("shown")), (-signal.SIGTERM, [0] * 5))

    @promise("Behind a filter of system calls the default actions are in force again.")
    def test_behind_a_filter(self):
        if self.target.emulated:
            self.skipTest("the emulator has no filters")
        process = self.run_victim("filtered", "prctl", "crash", environment=TOLD)
        self.assertEqual((process.finish(), process.err), (-signal.SIGSEGV, ""))


class Events(case.Case):
    """What the library tells of an end, where it appends events to a file."""

    def events_of(self, process):
        process.finish()
        events = [json.loads(line) for line in (self.directory / "events").read_text().splitlines()]
        self.assertEqual({event["pid"] for event in events}, {process.pid})
        return events

    def function(self, events, frame, back=1):
        [path] = [event["path"] for event in events if event["event"] == "module" and event["id"] == frame[0]]
        return symbols.function_at(self.target, path, frame[1] - back)

    def start(self, *arguments):
        return self.run_victim("ends", *arguments, environment=TOLD | {"QUARL_EVENTS": "events"}, config="QUARL_SLOPOVER_EXIT=0")

    @promise("A crash is told first, as an event or on standard error: the signal, the address, the calls that led there, and the "
             "block that the address lies in or next to.")
    def test_crash(self):
        for way, relation in (("null", None), ("behind", "behind"), ("inside", "inside"), ("abort", None)):
            with self.subTest(way):
                (self.directory / "events").unlink(missing_ok=True)
                process = self.start(way)
                events = self.events_of(process)
                self.assertEqual(EMULATOR.sub("", process.err), "")
                kinds = [event["event"] for event in events if event["event"] not in ("module", "fault")]
                self.assertEqual(kinds, ["loaded", "log", "crash", "snapshot", "exit"])
                crash, end = (next(event for event in events if event["event"] == kind) for kind in ("crash", "exit"))
                number = signal.SIGABRT if way == "abort" else signal.SIGSEGV
                self.assertEqual((crash["signal"], end["signal"], crash["tid"]), (number, number, process.pid))
                if way == "abort":
                    self.assertEqual((crash.keys() & {"at", "near"}), set())
                    continue
                self.assertEqual(self.function(events, crash["pc"], back=0), "write_at")
                self.assertEqual([self.function(events, frame) for frame in crash["trace"]], [way, "go", "main"])
                near = crash.get("near", {})
                self.assertEqual(near.get("relation"), relation)
                if relation is None:
                    self.assertEqual(crash["at"], "0x0")
                    continue
                [block] = process.said("block")
                self.assertEqual((int(near["address"], 16), near["distance"]), (block, int(crash["at"], 16) - block))
                self.assertEqual([self.function(events, frame) for frame in near["allocated"]], ["malloc", way, "go", "main"])
                self.assertEqual((near["operation"], near["thread"]), ("malloc", process.pid))

    def test_end_that_was_asked_for(self):
        driver = self.driver("", environment=TOLD | {"QUARL_EVENTS": "events"})
        driver.malloc(10)
        driver.signal(signal.SIGTERM)
        events = self.events_of(driver)
        self.assertEqual([event["event"] for event in events if event["event"] != "module"], ["loaded", "log", "snapshot", "exit"])
        self.assertEqual(events[-1]["signal"], signal.SIGTERM)
        self.assertGreaterEqual(events[-1]["bytes"], 10)


class Shells(case.Case):
    """Programs that look at what is installed, or put it back."""

    def run_both(self, *command):
        if self.target.emulated:
            self.skipTest("programs of i686 only")
        import sysroot
        program = sysroot.debian_program("i686", command[0])
        if not program.exists():
            self.skipTest(f"{program} is not there: scripts/fetch-programs")
        outcomes = []
        for preload in ([], [self.target.library]):
            done = sysroot.run("i686", program, *command[1:], preload=preload, cwd=self.directory,
                               environment=TOLD | {"QUARL_CONTRACT": "libc", "PYTHONHOME": str(sysroot.sysroot("i686") / "usr")})
            outcomes.append((done.returncode, done.stdout, done.stderr))
        self.assertEqual(*outcomes)
        return outcomes[0]

    def test_python_sees_the_default_actions(self):
        script = ("import os, signal\n"
                  "print(repr(signal.getsignal(signal.SIGTERM)), signal.getsignal(signal.SIGINT))\n"
                  "try: os.kill(os.getpid(), signal.SIGINT)\n"
                  "except KeyboardInterrupt: print('interrupted')\n"
                  "old = signal.signal(signal.SIGTERM, lambda *_: print('mine'))\n"
                  "os.kill(os.getpid(), signal.SIGTERM)\n"
                  "signal.signal(signal.SIGTERM, old)\n"
                  "print('ends', flush=True)\n"
                  "os.kill(os.getpid(), signal.SIGTERM)\n")
        status, out, _ = self.run_both("python3.11", "-c", script)
        self.assertEqual(status, -signal.SIGTERM)
        self.assertEqual(out, b"<Handlers.SIG_DFL: 0> <built-in function default_int_handler>\ninterrupted\nmine\nends\n")

    def test_perl_and_shells(self):
        script = "$SIG{TERM} = sub { print qq(mine\\n) }; kill TERM => $$; { local $SIG{INT} = sub { print qq(int\\n) }; " \
                 "kill INT => $$ } $| = 1; print qq(ends\\n); kill INT => $$"
        self.assertEqual(self.run_both("perl", "-e", script)[:2], (-signal.SIGINT, b"mine\nint\nends\n"))
        script = "trap 'echo mine' TERM; kill -TERM $$; trap - TERM; (trap 'echo sub; exit 3' HUP; kill -HUP $BASHPID$1); echo $?; " \
                 "(while :; do :; done) & kill %1; wait %1; echo $?; trap '' HUP; kill -HUP $$; echo ends; kill -TERM $$"
        self.assertEqual(self.run_both("bash", "-c", script)[0], -signal.SIGTERM)


if __name__ == "__main__":
    unittest.main()
