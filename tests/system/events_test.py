# SPDX-License-Identifier: Apache-2.0
"""Events: each kind against what is printed in the same run, whole lines under all conditions, and no trace when unset."""

import os
import re
import resource
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

import case
import target
from events import addresses, parse_line, read_events
from promise import promise
from report_text import take_reports

QUIET_END = "QUARL_SLOPOVER_EXIT=0 QUARL_OUTPUT_LOG=1 "
GUARD = "ebbedafe"


class EventCase(case.Case):
    def setUp(self):
        super().setUp()
        self.path = self.directory / "events"
        self.environment = {"QUARL_EVENTS": str(self.path)}

    def told(self, *kinds):
        return [event for event in read_events(self.path) if not kinds or event.kind in kinds]

    def damaged(self, driver, size=12):
        block = driver.malloc(size)
        driver.fill(block + size, 0, 1)
        return block


class Faults(EventCase):
    def assert_same(self, events, event, report):
        block = event["block"]
        self.assertEqual(event["kind"], report.kind + "-overrun")
        self.assertEqual((int(block["address"], 16), block["size"], block["operation"], block.get("seq", 0), block.get("thread", 0)),
                         (report.address, report.size, report.operation, report.seq_num, report.tid))
        self.assertEqual(addresses(events, event, block.get("allocated", [])), report.trace)

    def test_each_way_to_meet_a_fault(self):
        """The same figures as printed; the trace of the call that met it is the one of an allocation from there on."""
        ways = {"release": "free {:#x}", "resize": "realloc {:#x} 40", "check": "check"}
        for found, command in ways.items():
            for kind in ("tail", "head"):
                with self.subTest(found, kind=kind):
                    self.path.unlink(missing_ok=True)
                    driver = self.driver(QUIET_END, environment=self.environment)
                    worker = driver.spawn()
                    block = worker.malloc(12)
                    driver.fill(block + 12 if kind == "tail" else block - 1, 0, 1)
                    if found == "check":
                        worker.check()
                    else:
                        worker.send(command.format(block))
                        driver.await_that(lambda: self.told("parked"), "the end")
                    driver.await_match(r"call trace :\n(\d+ : \w+\n){3}")
                    [report], rest = take_reports(driver.out)
                    events = self.told()
                    [fault] = [event for event in events if event.kind == "fault"]
                    self.assert_same(events, fault, report)
                    self.assertEqual((fault["found"], fault["stops"], fault["pid"], fault["tid"], rest),
                                     (found, found != "check", driver.pid, worker.tid, ""))
                    at, size = (block + 12, 1) if kind == "tail" else (block - 4, 4)
                    [wrong] = fault["bytes"]
                    now = driver.word(at).to_bytes(4, "little").hex()
                    should = GUARD if kind == "tail" else (block | 3).to_bytes(4, "little").hex()
                    self.assertEqual((int(wrong["at"], 16), wrong["found"], wrong["expected"]), (at, now, should))
                    finder, made = (addresses(events, fault, trace) for trace in (fault["trace"], fault["block"]["allocated"]))
                    self.assertEqual(finder[2:], made[2:])
                    self.assertNotEqual(finder[1], made[1])
                    self.assert_ends(driver, driver.out)

    def test_second_release_and_damage_met_on_the_way(self):
        driver = self.driver(QUIET_END, environment=self.environment)
        block, first, second = driver.malloc(12), driver.spawn(), driver.spawn()
        driver.free(block)
        first.send(f"free {block:#x}")
        driver.await_that(lambda: self.told("parked"), "the first stop")
        broken, inner = driver.malloc(16), driver.malloc(64)
        driver.set_word(broken - 4, 0)
        second.send(f"free {inner + 32:#x}")
        driver.await_that(lambda: len(self.told("parked")) == 2, "the second stop")
        twice, passed = self.told("fault")
        self.assertEqual((twice["kind"], twice["found"], twice["block"]["address"]), ("double-free", "release", f"{block:#x}"))
        self.assertEqual((passed["kind"], passed["found"], passed["block"]["address"]), ("head-overrun", "search", f"{broken:#x}"))
        self.assertEqual([event["thread"] for event in self.told("parked")], [first.tid, second.tid])
        for worker in (first, second):
            driver.release(worker.tid)
        driver.await_that(lambda: len(self.told("ended")) == 2, "both ends")
        self.assertEqual({event["thread"] for event in self.told("ended")}, {first.tid, second.tid})
        driver.set_word(broken - 4, broken | 3)
        self.assert_ends(driver, driver.out)
        self.assertEqual(self.told()[-1]["faults"], 2)

    def test_what_is_known_of_a_released_block(self):
        """Its header outlives it, but for what the allocator keeps there; nothing is told of one that was written over."""
        driver = self.driver(QUIET_END, environment=self.environment)
        driver.malloc(16)
        nest = "repeat 1 " * 4
        blocks = {size: int(driver.do(f"{nest}malloc {size}")) for size in (12, 600, 3000)}
        driver.fill(int(driver.do(nest + "malloc 16")) + 16, 0, 1)
        driver.check()
        events = self.told()
        made = addresses(events, events[-1], events[-1]["block"]["allocated"])
        for number, (size, block) in enumerate(blocks.items(), 2):
            worker = driver.spawn()
            driver.free(block)
            worker.send(f"free {block:#x}")
            driver.await_that(lambda: len(self.told("parked")) == number - 1, "the stop")
            events = self.told()
            told = [event for event in events if event.kind == "fault"][-1]
            lost, known = told["block"].pop("lost", 0), addresses(events, told, told["block"].pop("allocated"))
            self.assertEqual(told["block"], {"address": f"{block:#x}", "size": size, "operation": "malloc", "seq": number,
                                             "thread": driver.pid})
            self.assertEqual(known, made[lost:])
            self.assertLess(lost, len(made))
        worker, block = driver.spawn(), driver.malloc(12)
        driver.free(block)
        driver.fill(block - 40, 0x41, 34)
        worker.send(f"free {block:#x}")
        driver.await_that(lambda: len(self.told("parked")) == 4, "the stop")
        self.assertEqual(self.told("fault")[-1]["block"], {"address": f"{block:#x}"})
        driver.kill()

    def test_what_a_damaged_header_says_is_not_believed(self):
        driver = self.driver(QUIET_END, environment=self.environment)
        driver.malloc(16)
        block = driver.malloc(40)
        header = [driver.word(block - 4 * i) for i in range(1, 13)]
        driver.fill(block - 48, 0x41, 48)
        driver.check()
        self.assertEqual(self.told("fault")[-1]["block"], {"address": f"{block:#x}", "damaged": True})
        for i, word in enumerate(header, 1):
            driver.set_word(block - 4 * i, word)
        driver.set_word(block - 16, 0x41414141)
        driver.check()
        size_wrong = self.told("fault")[-1]["block"]
        driver.set_word(block - 16, 40)
        driver.set_word(block - 4, 0x41414141)
        driver.check()
        link_wrong = self.told("fault")[-1]["block"]
        self.assertEqual((size_wrong.pop("damaged"), link_wrong.pop("size")), (True, 40))
        self.assertEqual(size_wrong, link_wrong)
        self.assertEqual({key: link_wrong[key] for key in ("operation", "seq", "thread")},
                         {"operation": "malloc", "seq": 2, "thread": driver.pid})
        driver.kill()

    def test_links_that_lead_nowhere(self):
        driver = self.driver(QUIET_END, environment=self.environment)
        blocks = [driver.malloc(16) for _ in range(3)]
        for offset, right in ((8, blocks[2]), (12, blocks[0])):
            sound = driver.word(blocks[1] - offset)
            self.assertEqual(sound & ~3, right)
            driver.set_word(blocks[1] - offset, 0xDEAD0000)
            driver.check()
            driver.set_word(blocks[1] - offset, sound)
            wrong = self.told("fault")[-1]["bytes"]
            self.assertEqual(wrong, [{"at": f"{blocks[1] - offset:#x}", "found": "0000adde", "expected": sound.to_bytes(4, "little").hex()}])
        self.assertEqual(driver.finish(), 0)

    def test_exit_and_what_is_live(self):
        driver = self.driver("", environment=self.environment)
        blocks = [driver.malloc(size) for size in (10, 20, 30)]
        driver.free(blocks[1])
        driver.fill(blocks[0] + 10, 0, 2)
        self.assertEqual(driver.finish(), 0)
        reports, _ = take_reports(driver.out)
        events = self.told()
        faults = [event for event in events if event.kind == "fault"]
        self.assertEqual(len(faults), len(reports))
        for fault, report in zip(faults, reports):
            self.assert_same(events, fault, report)
            self.assertEqual((fault["found"], fault["stops"], "trace" in fault, fault["bytes"][0]["found"]), ("exit", False, False, "0000dafe"))
        self.assertEqual((events[-1].kind, events[-1]["faults"], events[-1]["blocks"], events[-1]["bytes"]), ("exit", len(reports), 2, 40))
        [snapshot] = self.told("snapshot")
        self.assertEqual((snapshot["kind"], snapshot["blocks"], snapshot["bytes"], snapshot["path"]),
                         ("exit", 2, 40, str(self.log_path(driver, "quarl"))))

    def test_deep_traces_fit_in_a_line(self):
        driver = self.driver(QUIET_END + "QUARL_HEAD_STACKDEPTH=64", environment=self.environment)
        nest = "repeat 1 " * 35
        block = driver.do(nest + "malloc 12")
        driver.fill(block + 12, 0, 1)
        driver.do(nest + "check")
        [fault] = self.told("fault")
        self.assertEqual([len(fault["trace"]), len(fault["block"]["allocated"])], [64, 64])
        self.assert_ends(driver, driver.out)

    @promise("Events are told in a signal handler too, on a stack of 8 KiB.")
    def test_in_a_handler_on_a_small_stack(self):
        process = self.run_victim("telling", "handler", environment=self.environment, config="QUARL_SLOPOVER_EXIT=0 QUARL_OUTPUT_LOG=1")
        self.assertEqual(process.finish(), 0, process.err)
        [fault] = self.told("fault")
        self.assertEqual((fault["kind"], fault["found"], fault["block"]["size"]), ("tail-overrun", "check", 24))


class Kinds(EventCase):
    def test_loaded_and_modules(self):
        driver = self.driver(QUIET_END + "QUARL_HEAD_STACKDEPTH=5", environment={**self.environment, "QUARL_CONTRACT": "libc"})
        self.damaged(driver)
        driver.check()
        loaded = self.told()[0]
        self.assertEqual((loaded.kind, loaded["pid"], loaded["program"], loaded["target"], loaded["contract"]),
                         ("loaded", driver.pid, str(self.target.victim("driver")), self.target.name, "libc"))
        self.assertEqual({key: loaded["items"].get(key) for key in ("QUARL_ALL", "QUARL_OUTPUT_LOG", "QUARL_HEAD_STACKDEPTH", "QUARL_SLOPOVER_EXIT")},
                         {"QUARL_ALL": 1, "QUARL_OUTPUT_LOG": 1, "QUARL_HEAD_STACKDEPTH": 5, "QUARL_SLOPOVER_EXIT": None})
        modules = {os.path.realpath(event["path"]): event for event in self.told("module")}
        for path in (self.target.victim("driver"), self.target.library):
            notes = subprocess.run([self.target.tool("readelf"), "-n", path], capture_output=True, text=True, check=True).stdout
            match = re.search(r"Build ID: ([0-9a-f]+)", notes)
            module = modules[os.path.realpath(path)]
            self.assertEqual(module.get("build_id"), match and match[1])
            self.assertEqual(module["address"], module["bias"])
        self.assert_ends(driver, driver.out)

    def test_items_that_are_numbers_and_texts(self):
        driver = self.driver("QUARL_ALL=1\nQUARL_MEM_HEAD=1\nQUARL_SIG=SIGUSR2\nQUARL_HEAD_TIME=2\nQUARL_TIMER_SIG=40\n"
                             "QUARL_TIME_INTERVAL=7\nQUARL_SLOPOVER_USER=41\nQUARL_LOG_FILENAME=mine\nQUARL_MMAP=0\n",
                             environment=self.environment)
        told = self.told("loaded")[0]["items"]
        expected = {"QUARL_SIG": int(signal.SIGUSR2), "QUARL_HEAD_TIME": 2, "QUARL_TIMER_SIG": 40, "QUARL_TIME_INTERVAL": 7,
                    "QUARL_SLOPOVER_USER": 41, "QUARL_LOG_FILENAME": "mine", "QUARL_MMAP": None, "QUARL_HEAD_TID": 1}
        self.assertEqual({key: told.get(key) for key in expected}, expected)
        self.assertEqual(driver.finish(), 0)
        self.path.unlink()
        driver = self.driver("", environment=self.environment)
        told = self.told("loaded")[0]["items"]
        expected = {"QUARL_SIG": int(signal.SIGUSR1), "QUARL_HEAD_TIME": 1, "QUARL_TIMER_SIG": int(signal.SIGALRM),
                    "QUARL_TIME_INTERVAL": None, "QUARL_SLOPOVER_USER": None, "QUARL_LOG_FILENAME": None, "QUARL_MMAP": 1}
        self.assertEqual({key: told.get(key) for key in expected}, expected)
        self.assertEqual(driver.finish(), 0)

    def test_library_in_the_place_of_another(self):
        libraries = [self.target.build / "victims" / f"libreopened_{room}.so" for room in (16, 400)]
        driver = self.driver(QUIET_END + "QUARL_SLOPOVER_FREE=1 QUARL_HEAD_STACKDEPTH=2", environment=self.environment)
        self.damaged(driver)
        for path in (*libraries, libraries[0]):
            handle = int(driver.dlopen(path))
            driver.do(f"call {driver.do(f'dlsym {handle:#x} reopened_allocation'):#x}")
            self.assertEqual(driver.dlclose(handle), 0)
        self.assert_ends(driver, driver.out)
        events = self.told()
        ids = [event["id"] for event in events if event.kind == "module"]
        self.assertEqual(ids, list(range(1, len(ids) + 1)))
        paths = {event["id"]: event["path"] for event in events if event.kind == "module"}
        callers = [paths.get(event["trace"][1][0]) for event in events if event.kind == "fault"]
        met = [path for i, path in enumerate(callers) if path in map(str, libraries) and callers[i - 1] != path]
        self.assertEqual(met, [str(path) for path in (*libraries, libraries[0])])

    def test_libraries_are_told_before_they_go(self):
        """So that the logs, whose map is of a later time, can be read."""
        libraries = [str(self.target.build / "victims" / f"libreopened_{room}.so") for room in (16, 400)]
        driver = self.driver(QUIET_END, environment=self.environment)
        first, second = (int(driver.dlopen(path)) for path in libraries)
        place = driver.do(f"dlsym {second:#x} reopened_allocation")
        self.assertEqual(self.told("module"), [])
        self.assertEqual((driver.dlclose(first), driver.dlclose(second)), (0, 0))
        modules = {event["path"]: event for event in self.told("module")}
        self.assertEqual(len(modules), len(self.told("module")))  # each once
        self.assertLessEqual({*libraries, str(self.target.victim("driver"))}, set(modules))
        symbols = subprocess.run([self.target.tool("nm"), libraries[1]], capture_output=True, text=True, check=True).stdout
        offset = int(re.search(r"^(\w+) T reopened_allocation$", symbols, re.M)[1], 16)
        self.assertEqual(int(modules[libraries[1]]["bias"], 16) + offset, place & ~1)
        self.assertEqual(driver.finish(), 0)

    def test_logs_limits_and_reload(self):
        driver = self.driver("QUARL_ALL=1 QUARL_PROF=1 QUARL_HEAP_LIMIT=1 QUARL_SLOPOVER_EXIT=0", environment=self.environment)
        driver.malloc(600)
        [log] = self.told("log")
        self.assertEqual((log["kind"], log["path"]), ("snapshot", str(self.log_path(driver, "quarl"))))
        self.configure("QUARL_PRINT_PROFINFO=1")
        driver.do(f"raise {signal.SIGUSR1}")
        [dump] = self.told("snapshot")
        self.assertEqual((dump["kind"], dump["blocks"], dump["bytes"]), ("dump", 1, 600))
        pages = int(Path(f"/proc/{driver.pid}/statm").read_text().split()[1])
        self.assertTrue(0.8 < dump["resident"] / (pages * resource.getpagesize()) <= 1.2, (dump, pages))
        driver.free(driver.malloc(1))
        [items] = self.told("items")
        self.assertEqual(items["items"]["QUARL_PRINT_PROFINFO"], 1)
        worker = driver.spawn()
        driver.write("heap_limit", 1000)
        worker.send("malloc 500")
        driver.await_that(lambda: self.told("parked"), "the stop")
        [limit], [parked] = self.told("limit"), self.told("parked")
        self.assertEqual({key: limit[key] for key in ("kind", "limit", "request")}, {"kind": "heap", "limit": 1000, "request": 500})
        self.assertGreaterEqual(limit["held"], 600)
        self.assertGreater(len(limit["trace"]), 3)
        self.assertEqual((parked["thread"], parked["why"]), (worker.tid, "heap-limit"))
        self.assertEqual(driver.finish(), 0)

    def test_automatic_snapshots(self):
        clock = "QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1 QUARL_SNAP_INTERVAL=1 QUARL_SNAP_DETAIL=1"
        driver = self.driver(clock, environment=self.environment)
        driver.malloc(100)
        driver.await_that(lambda: any(event["blocks"] for event in self.told("snapshot")), "a snapshot")
        self.assertEqual(driver.finish(), 0)
        self.assertEqual({event["kind"] for event in self.told("log")}, {"snapshot", "auto"})
        auto = [event for event in self.told("snapshot") if event["kind"] == "auto"]
        self.assertEqual((auto[-1]["blocks"], auto[-1]["bytes"]), (1, 100))

    def test_trouble_is_told_as_it_is_printed(self):
        driver = self.driver("QUARL_NO_SUCH=1\nnonsense\nQUARL_OUTPUT_LOG=1\nQUARL_TRACE_BUFSIZE=280\n", environment=self.environment)
        driver.await_match("\n.*\n", "err")
        troubles = self.told("trouble")
        self.assertEqual([event["text"] + "\n" for event in troubles], driver.err.splitlines(keepends=True))
        self.assertEqual({event["what"] for event in troubles}, {"configuration"})
        self.assertEqual([event.kind for event in self.told()[-2:]], ["items", "log"])
        driver.kill()

    def test_lost_blocks(self):
        driver = self.driver(QUIET_END, environment=self.environment)
        blocks = [driver.malloc(16) for _ in range(4)]
        driver.set_word(blocks[1] - 8, driver.word(blocks[1] - 8) & 3)  # a 0 ends a walk
        driver.check()
        [trouble] = self.told("trouble")
        driver.await_match("\n", "err")
        self.assertEqual((trouble["what"], trouble["text"] + "\n"), ("list", driver.err))
        self.assertEqual(driver.finish(), 0)

    def test_fork_and_exec(self):
        driver = self.driver(QUIET_END, environment=self.environment)
        self.damaged(driver)
        driver.check()
        child = driver.do("fork malloc 33;check").number
        again = driver.do(f"fork exec +{self.target.library} {self.target.victim('api_overrun')}").number if not self.target.emulated else None
        self.assertEqual(driver.finish(), 0)
        events = self.told()
        of_child = [event for event in events if event["pid"] == child]
        self.assertEqual((of_child[0].kind, of_child[0]["parent"]), ("loaded", driver.pid))
        self.assertEqual([event["id"] for event in of_child if event.kind == "module"][0], 1)
        [fault] = [event for event in of_child if event.kind == "fault"]
        self.assertEqual(addresses(events, fault, fault["block"]["allocated"])[2:],
                         addresses(events, next(event for event in events if event.kind == "fault"), self.told("fault")[0]["block"]["allocated"])[2:])
        self.assertEqual({key: of_child[-1][key] for key in ("event", "faults", "blocks", "bytes", "own_blocks", "own_bytes")},
                         {"event": "exit", "faults": 1, "blocks": 2, "bytes": 45, "own_blocks": 1, "own_bytes": 33})
        if again:
            of_program = [event for event in events if event["pid"] == again]
            loaded = [event for event in of_program if event.kind == "loaded"]
            self.assertEqual(loaded[-1]["program"], str(self.target.victim("api_overrun")))
            self.assertNotIn("parent", loaded[-1])
            self.assertEqual(of_program[-1].kind, "exit")


class Hardship(EventCase):
    def end_whole(self, process, faults):
        self.assertEqual(process.finish(), 0, process.err)
        self.assertEqual([event["kind"] for event in self.told("fault")], ["tail-overrun"] * faults)

    @promise("Each event is a line of less than 4,096 bytes, written by one `write` behind what is there: lines of several "
             "threads and processes stay whole.")
    def test_many_threads_and_processes_at_once(self):
        quiet = QUIET_END + "QUARL_HEAD_STACKDEPTH=64"
        self.configure(quiet)
        several = [self.run_victim("telling", "everywhere", environment=self.environment) for _ in range(3)]
        for process in several:
            self.assertEqual(process.finish(), 0, process.err)
        self.assertEqual(len(self.told("fault")), 3 * 8 * 20 * 2)
        self.assertEqual([event["dropped"] for event in self.told() if "dropped" in event], [])
        self.path.unlink()
        storm = self.run_victim("telling", "storm", config=quiet, environment=self.environment)
        storm.await_that(lambda: self.path.exists() and len(self.told("parked")) == 8, "eight stopped threads")
        faults = self.told("fault")
        self.assertEqual(len({event["tid"] for event in faults}), 8)
        for event in faults:
            self.assertEqual((event["tid"], event["block"]["size"]), (event["block"]["thread"], 100))
        storm.kill()

    @promise("The descriptor of the events lies at 100 and above, is close-on-exec and kept across `chroot` and dropped privileges; where "
             "the application has closed it, the file is opened again.")
    def test_descriptor(self):
        driver = self.driver(QUIET_END, environment=self.environment)
        links = f"/proc/{driver.pid}/fd"
        number = next(int(name) for name in os.listdir(links) if os.readlink(f"{links}/{name}") == str(self.path))
        self.assertGreaterEqual(number, 100)
        information = Path(f"/proc/{driver.pid}/fdinfo/{number}").read_text()
        flags = int(re.search(r"flags:\t(\d+)", information)[1], 8)
        self.assertTrue(flags & os.O_CLOEXEC)
        other = self.directory / "other"
        other.write_text("")
        self.damaged(driver)
        driver.dup2(driver.open(other, os.O_WRONLY), number)
        driver.chdir("/")
        driver.check()
        driver.close(number)
        driver.check()
        self.assertEqual((len(self.told("fault")), other.read_text()), (2, ""))
        self.assert_ends(driver, driver.out)
        self.path.unlink()
        self.end_whole(self.run_victim("telling", "closed", config=QUIET_END, environment=self.environment), 1)

    @promise("The descriptor of the events lies at 100 and above, is close-on-exec and kept across `chroot` and dropped privileges; where "
             "the application has closed it, the file is opened again.")
    def test_jail(self):
        jail = self.directory / "jail"
        jail.mkdir()
        process = self.run_victim("telling", "jail", jail, config=QUIET_END, environment=self.environment)
        if (status := process.finish()) == 77:
            self.skipTest("no jail can be made here")
        self.assertEqual(status, 0, process.err)
        [fault] = self.told("fault")
        if not self.target.emulated:  # the emulator shows an empty list there
            self.assertEqual([module for module, _ in fault["trace"] if module is None], [])
        self.assertEqual(list(jail.iterdir()), [])

    @promise("A FIFO or a terminal is opened and written without waiting.",
             "What cannot be written is counted, and the next event tells how many that were.")
    def test_fifo(self):
        os.mkfifo(self.path)
        driver = self.driver(QUIET_END, environment=self.environment)
        self.damaged(driver)
        driver.check()
        driver.check()
        self.assertEqual(driver.err, "")
        reader = os.open(self.path, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        driver.check()
        lines = [parse_line(line) for line in os.read(reader, 65536).splitlines(keepends=True)]
        self.assertEqual([line.kind for line in lines if line.kind != "module"], ["loaded", "fault"])
        lost = lines[-1]["dropped"]
        self.assertEqual(lost, 1 + 1 + 2)  # loaded, the log, two faults
        driver.repeat(400, "check")  # nobody reads
        full = os.read(reader, 1 << 20)
        driver.check()
        lines = [parse_line(line) for line in (full + os.read(reader, 65536)).splitlines(keepends=True)]
        self.assertEqual(len(lines) + lines[-1]["dropped"], 401)
        self.assertGreater(lines[-1]["dropped"], 100)
        self.assertEqual(driver.finish(), 0)

    @promise("A full disk, a limit of the file size and a reader that goes away raise no signal, and stop nobody.")
    def test_no_room(self):
        outcomes = []
        for path in (None, "/dev/full", self.directory / "no" / "such", self.directory):
            driver = self.driver(QUIET_END, environment={"QUARL_EVENTS": str(path)} if path else {})
            self.damaged(driver)
            driver.check()
            self.assertEqual(driver.finish(), 0)
            outcomes.append((len(take_reports(driver.out)[0]), driver.err))
        told = [f"QUARL_EVENTS {path}: {why}\n" for path, why in ((self.directory / "no" / "such", "No such file or directory"), (self.directory, "Is a directory"))]
        self.assertEqual(outcomes, [(1, ""), (1, ""), *((1, text) for text in told)])

    @unittest.skipIf(target.current().emulated, "the limit ends the emulator, which writes the list of mappings to a file")
    @promise("A full disk, a limit of the file size and a reader that goes away raise no signal, and stop nobody.")
    def test_limit_of_the_file_size(self):
        driver = self.driver(QUIET_END, environment=self.environment)
        self.damaged(driver)
        limit = os.path.getsize(self.path) + 100
        driver.limit(resource.RLIMIT_FSIZE, limit)
        driver.check()
        driver.check()
        driver.limit(resource.RLIMIT_FSIZE, 1 << 30)
        driver.check()
        self.assertEqual(driver.finish(), 0)
        lines = self.path.read_bytes().splitlines(keepends=True)
        cut = [line for line in lines if not line.endswith(b"}\n")]
        whole = [parse_line(line) for line in lines if line not in cut]
        self.assertEqual((len(cut), len(cut[0])), (1, 101))
        self.assertEqual(next(event["dropped"] for event in whole if "dropped" in event), 3)  # the log has no room either

    @promise("A full disk, a limit of the file size and a reader that goes away raise no signal, and stop nobody.")
    def test_reader_that_goes_away(self):
        os.mkfifo(self.path)
        reader = os.open(self.path, os.O_RDONLY | os.O_NONBLOCK)
        driver = self.driver(QUIET_END, environment=self.environment)
        self.damaged(driver)
        driver.check()
        os.close(reader)
        driver.check()
        reader = os.open(self.path, os.O_RDONLY | os.O_NONBLOCK)
        driver.check()
        last = parse_line(os.read(reader, 65536).splitlines(keepends=True)[-1])
        os.close(reader)
        self.assertEqual((last.kind, last["dropped"]), ("fault", 1))
        self.assertEqual(driver.finish(), 0)

    @unittest.skipIf(target.current().emulated, "the emulator's list of mappings is not the kernel's")
    def test_names_of_any_bytes(self):
        folder = os.fsencode(self.directory) + b"/a\"b\\c\n\x01\xff\xe2\x82\xac\xed\xa0\x80"
        os.mkdir(folder)
        program = shutil.copy(os.fsencode(self.target.victim("telling")), folder + b"/telling")
        self.configure('Q"\\\x02=1\n')
        environment = {**os.environb, b"QUARL_EVENTS": folder + b"/events", b"LD_PRELOAD": os.fsencode(self.target.library),
                       b"QUARL_CFG_FILE": os.fsencode(self.directory / "quarlcfg.ini")}
        subprocess.run([program], env=environment, cwd=folder, check=True, capture_output=True)
        events = read_events(Path(os.fsdecode(folder + b"/events")))
        self.assertEqual(os.fsencode(events[0]["program"]), program)
        self.assertEqual([os.path.dirname(os.fsencode(event["path"])) for event in events if event.kind == "log"], [folder])
        self.assertIn(program, [os.fsencode(event["path"]) for event in events if event.kind == "module"])
        self.assertEqual([event["text"] for event in events if event.kind == "trouble"], ['Item Q"\\\x02 is not support'])

    @unittest.skipIf(target.current().emulated, "the emulator knows no filters")
    @promise("Behind a filter of system calls nothing is told; the last event says so.")
    def test_confined(self):
        process = self.run_victim("filtered", "prctl", "sound", config="", environment=self.environment)
        self.assert_ends(process)
        last = self.told()[-1]
        self.assertEqual((last.kind, last["faults"], last["blocks"]), ("confined", 0, 1))


class Messages(EventCase):
    def outputs(self, where, config, **environment):
        if where:
            environment["QUARL_MESSAGES"] = where
        driver = self.driver(config, environment=environment)
        self.damaged(driver)
        driver.check()
        driver.say("program")
        self.assertEqual(driver.finish(), 0)
        return [re.sub(r"(?m)^(tid|start_addr|\d+) : .*|\S+\.log", "", text) for text in (driver.out, driver.err)]

    @promise("`QUARL_MESSAGES` sends all messages to one descriptor, or nowhere.")
    def test_where_messages_go(self):
        config = "QUARL_NO_SUCH=1 QUARL_ALL=1 QUARL_PROF=1 QUARL_PRINT_PROFINFO=1"
        out, err = self.outputs(None, config)
        self.assertIn("slop over", out)
        self.assertEqual(err, "Item QUARL_NO_SUCH is not support\n")
        words = out.replace("program", "")
        self.assertEqual(self.outputs("none", config), ["program", ""])
        self.assertEqual(self.outputs("stdout", config), [err + out, ""])
        self.assertEqual(self.outputs("stderr", config), ["program", err + words])
        for where in ("nowhere", "STDOUT"):
            self.assertEqual(self.outputs(where, config), [out, f"QUARL_MESSAGES is stdout, stderr or none, not {where}\n" + err])

    @promise("Events change nothing about what is printed.")
    def test_prints_as_without_events(self):
        config = "QUARL_NO_SUCH=1 QUARL_ALL=1 QUARL_PROF=1 QUARL_PRINT_PROFINFO=1"
        before = self.outputs(None, config)
        self.assertEqual(self.outputs(None, config, **self.environment), before)
        self.assertGreater(len(self.told()), 5)


if __name__ == "__main__":
    case.main()
