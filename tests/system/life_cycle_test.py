# SPDX-License-Identifier: Apache-2.0
"""Beginning and end of a process: hooks late and early, children, exit from every place, and what is left behind."""

import signal
import subprocess

import case
from ending import Ending
from header import read_header
from log_file import read_log
from promise import promise
from report_text import double_free, take_reports


class Ends(case.Case):
    @promise("The last snapshot is written then, and the hooks are put back.",
             "Blocks that outlive the hooks (destructors of other libraries, threads that run on) go back to the "
             "allocator.")
    def test_blocks_cross_the_ends_of_the_checker(self):
        """A library older than the hooks and younger than their end: no abort, no report, the bytes kept."""
        for arguments in ((), ("resize",)):
            for config in ("", "QUARL_OUTPUT_LOG=1", "QUARL_MEM_HEAD=0", "QUARL_SLOPOVER=0"):
                with self.subTest(config, arguments=arguments):
                    process = self.run_victim("late_release", *arguments, config=config)
                    self.assert_ends(process)
                    self.assertTrue(process.said("finished"))
                    self.assertEqual(process.said("headed"), [0])

    @promise("The last snapshot is written then, and the hooks are put back.")
    def test_signals_after_the_end_change_nothing(self):
        """Blocks have gone back past the list by then: a check would find faults in them, a dump would list none."""
        process = self.run_victim("late_release", config="QUARL_SLOPOVER_USER=12 QUARL_PRINT_PROFINFO=0")
        self.assert_ends(process)
        log = read_log(self.log_path(process, "quarl", program="late_release"))
        sizes = [record.brief()[2] for record in log.records]
        self.assertEqual([size for size in sizes if size in (100, 1000, 300000)], [100, 100, 1000, 300000])

    def test_status_and_output_of_every_way_out(self):
        ways = {"exit 3": 3, "leave 4": 4, "raise 15": -15, "raise 6": -6}
        for way, status in ways.items():
            for config in ("", "QUARL_OUTPUT_LOG=1 QUARL_HEAD_TIME=2"):
                with self.subTest(way, config=config):
                    driver = self.driver(config)
                    driver.malloc(10)
                    driver.send(way)
                    self.assertEqual((driver.finish(), driver.out), (status, ""))

    @promise("`_exit` and deadly signals skip all this: what was flushed by then is a log of whole records.")
    def test_process_that_skips_its_exit_leaves_whole_records(self):
        for way in ("leave 4", "raise 9", "raise 11"):
            driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=2800")
            driver.repeat(35, "malloc 10")
            driver.send(way)
            driver.finish()
            self.assertEqual(driver.out, "")
            log = read_log(self.log_path(driver, "quarlAll"))
            self.assertEqual(([record.seq_num for record in log.records], log.time), (list(range(1, 31)), 0))

    @promise("`exit` may be called anywhere, also in a signal handler that interrupted the checker.")
    def test_exit_from_a_thread_and_beside_a_parked_one(self):
        driver = self.driver("")
        parked, leaver = driver.spawn(), driver.spawn()
        block = driver.malloc(10)
        driver.free(block)
        parked.send(f"free {block:#x}")
        driver.await_that(lambda: driver.out, "report")
        leaver.send("exit 9")
        self.assertEqual((driver.finish(end_input=False), driver.out), (9, double_free(block)))

    @promise("`exit` may be called anywhere, also in a signal handler that interrupted the checker.")
    def test_exit_in_a_handler_on_an_alternate_stack(self):
        for config in ("", "QUARL_OUTPUT_LOG=1"):
            process = self.run_victim("alternate_stack", config=config)
            self.assert_ends(process, status=5)
            self.assertTrue(process.said("block"))

    @promise("`exit` may be called anywhere, also in a signal handler that interrupted the checker.")
    def test_exit_in_a_handler_that_interrupted_a_hook(self):
        for config in ("", "QUARL_OUTPUT_LOG=1"):
            for microseconds in range(3000, 8000, 377):
                process = self.run_victim("exit_in_hook", microseconds, config=config)
                self.assert_ends(process, status=5)

    @promise("Threads that still allocate go on without them.")
    def test_exit_while_threads_allocate(self):
        for config in ("", "QUARL_OUTPUT_LOG=1", "QUARL_ALL=1 QUARL_PROF=1 QUARL_THREAD=1"):
            for way in ("exit 6", "raise 15"):
                driver = self.driver(config)
                for worker in [driver.spawn() for _ in range(4)]:
                    worker.send("repeat 100000000 calloc 1 10;realloc 0 500;memalign 64 3")
                driver.malloc(10)
                driver.send(way)
                self.assertEqual((driver.finish(), driver.out, driver.err), (6 if "exit" in way else -15, "", ""))

    def test_item_that_ends_the_process_during_a_reload(self):
        driver = self.driver("QUARL_OUTPUT_LOG=1")
        driver.malloc(10)
        self.configure("QUARL_SNAP_INTERVAL=3")
        driver.do(f"raise {signal.SIGUSR1}")
        driver.send("malloc 20")
        self.assert_ends(driver, "Get time function is invalid, can not get snapshot info of memory automatically!\n")
        log = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual([record.brief()[:3] for record in log.records], [("malloc", 1, 10)])

    @promise("An end that an item asks for is an exit of the program: its exit handlers run without the checker's lock.")
    def test_exit_that_a_reload_asks_for_is_as_the_programs_own(self):
        driver = self.driver("QUARL_HEAD_TIME=1")
        worker = driver.spawn()
        ending = Ending(self, driver)
        self.configure("QUARL_SNAP_INTERVAL=3\nQUARL_NONE=1\n")
        driver.do(f"raise {signal.SIGUSR1}")
        worker.send("malloc 20")
        ending.check("Get time function is invalid, can not get snapshot info of memory automatically!\n")
        self.assertEqual(driver.err, "")  # nothing behind the line is applied


class Children(case.Case):
    @promise("The child goes on checking, under its own process id.")
    def test_forked_child_is_checked_and_has_logs_of_its_own(self):
        driver = self.driver("QUARL_OUTPUT_LOG=1")
        block = driver.malloc(100)
        driver.malloc(50)
        answer = driver.do(f"fork free {block:#x};malloc 7;exit 3")
        self.assertEqual(answer, 3 << 8)
        child_log = self.log_path(driver, "quarlAll").with_name(
            self.log_path(driver, "quarlAll").name.replace(str(driver.pid), str(answer.number)))
        driver.free(block)
        self.assert_ends(driver)
        own = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual([record.brief()[::2] for record in own.records], [("malloc", 100), ("malloc", 50), ("free", 100)])
        self.assertTrue(all(record.tid == driver.pid for record in own.records))
        self.assertEqual(own.stats.counts()["malloc"], (2, 0, 150))
        if child_log.exists():
            child = read_log(child_log)
            self.assertEqual(child.pid, answer.number)
            self.assertEqual([record.brief()[::2] for record in child.records], [("free", 100), ("malloc", 7)])
            self.assertTrue(all(record.tid == answer.number for record in child.records))
        self.assertLessEqual(set(self.files()), {child_log.name, self.log_path(driver, "quarlAll").name})

    @promise("The child goes on checking, under its own process id.")
    def test_faults_in_a_child_are_found(self):
        driver = self.driver("")
        block = driver.malloc(100)
        self.assertEqual(driver.do(f"fork fill {block + 100} 0 1;check;set_word {block + 100} {0xFEDABEEB};free {block}"), 0)
        [report], rest = take_reports(driver.out)
        self.assertEqual((report.address, report.kind, rest), (block, "tail", ""))
        driver.check()  # the parent's bytes are whole
        self.assert_ends(driver, driver.out)

    @promise("`errno` is kept.", "Its log files are created when it first has something to write.")
    def test_child_keeps_errno_while_it_makes_its_log(self):
        driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=280")
        driver.do("handle 12 malloc 10")
        self.assertEqual(driver.do("fork raise 12"), 0)
        made = driver.answer(worker=900)
        self.assertEqual((made != 0, made.number), (True, 0))
        self.assertEqual(len([name for name in self.files() if "quarlAll" in name]), 2)
        self.assert_ends(driver)

    @promise("It has none of its parent's log descriptors, timer and agent.")
    def test_child_has_no_clock_of_its_parents(self):
        """The timer does not tick in the child, and a file that asks for snapshots, but for no clock, gets none there."""
        driver = self.driver("QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1 QUARL_SNAP_INTERVAL=100")
        self.configure("QUARL_SNAP_INTERVAL=100 QUARL_SNAP_DETAIL=1")
        answer = driver.do(f"fork malloc 10;raise {signal.SIGUSR1};malloc 20;exit 0")
        self.assertEqual(answer, 0)
        self.assert_ends(driver)
        self.assertEqual([name for name in self.files() if "autosnap" in name], [self.log_path(driver, "quarl_autosnap").name])

    @promise("A fork waits for the lock, so the child finds everything whole.")
    def test_fork_in_a_thread_while_others_hold_blocks(self):
        driver = self.driver("QUARL_THREAD=1 QUARL_HEAD_TIME=2")
        workers = [driver.spawn() for _ in range(3)]
        blocks = [worker.malloc(1000) for worker in workers]
        self.assertEqual(workers[1].do("fork " + ";".join(f"free {block}" for block in blocks) + ";repeat 50 malloc 10"), 0)
        for block in blocks:
            driver.free(block)
        self.assert_ends(driver)

    @promise("Fork handlers of other libraries never run under the lock, and may allocate and wait for threads that "
             "allocate.",
             "A fork beside threads that read and flush streams, or draw random numbers, waits for none that waits for "
             "the checker.")
    def test_fork_waits_for_nobody_who_waits_for_the_checker(self):
        rounds = 40 if self.target.emulated else 200
        for mode, config in (("handlers", ""), ("streams", ""), ("random", "QUARL_ALL=1 QUARL_PROF=1 QUARL_RANDOM_FAIL=1")):
            with self.subTest(mode):
                process = self.run_victim("forking", rounds, mode, config=config)
                self.assert_ends(process)
                self.assertTrue(process.said("finished"))

    def test_thread_that_a_fork_waits_for_takes_the_lock_over(self):
        """Handlers that no order can be given to: each fork comes to its end, and its child runs on."""
        process = self.run_victim("forking", 2, "bypass", config="")
        self.assert_ends(process)
        self.assertTrue(process.said("finished"))

    @promise("A program started by exec is checked from its own beginning.")
    def test_program_started_by_exec_is_checked_from_its_beginning(self):
        driver = self.driver("")
        driver.malloc(10)
        victim = self.target.victim("double_free")
        command, _ = self.target.command(victim, (), {}, True)
        preload = "-" if self.target.emulated else f"+{self.target.library}"
        path = "/usr/bin/qemu-arm" if self.target.emulated else command[0]
        driver.send(f"exec {preload} {path} " + " ".join(command[1:]))
        text = double_free(driver.said("block")[0])
        driver.await_that(lambda: driver.out == text, "report")
        driver.release()
        self.assertEqual((driver.finish(), driver.out), (0, text + f"task: {driver.pid} exit!!\n"))

    @promise("A log stays in the directory in which it was created when the application changes directory.")
    def test_changing_the_directory_scatters_nothing(self):
        elsewhere = self.directory / "elsewhere"
        elsewhere.mkdir()
        driver = self.driver("QUARL_PRINT_PROFINFO=1")
        driver.malloc(77)
        driver.chdir("elsewhere")
        driver.do(f"raise {signal.SIGUSR1}")
        driver.malloc(78)
        driver.do(f"raise {signal.SIGUSR1}")
        self.assertEqual(driver.finish(), 0)
        self.assertEqual(list(elsewhere.iterdir()), [])
        log = read_log(self.log_path(driver, "quarl"))
        self.assertEqual([record.size for record in log.records], [77, 78])


class Again(case.Case):
    def place(self, driver, symbol):
        """The address of something that the library does not export: by its distance from what it does."""
        text = subprocess.run([self.target.tool("nm"), self.target.library], capture_output=True, text=True, check=True).stdout
        places = {row[2].split(".")[0]: int(row[0], 16) for row in map(str.split, text.splitlines()) if len(row) == 3}
        return driver.symbol("heap_limit") - places["heap_limit"] + places[symbol]

    def hidden(self, driver, symbol):
        return driver.word(self.place(driver, symbol))

    def test_constructor_called_again_changes_nothing(self):
        driver = self.driver("")
        block = driver.malloc(10)
        again = self.place(driver, "_ZN5quarl12_GLOBAL__N_15startEv")
        hooks = [self.hidden(driver, f"__{name}_hook") for name in ("malloc", "free", "realloc", "memalign", "mmap", "munmap")]
        self.assertNotIn(0, [again, *hooks])
        driver.do(f"call {again:#x}")
        self.assertEqual(hooks, [self.hidden(driver, f"__{name}_hook")
                                 for name in ("malloc", "free", "realloc", "memalign", "mmap", "munmap")])
        self.assertEqual(read_header(driver, driver.malloc(10)).prev, block)
        self.assert_ends(driver)


if __name__ == "__main__":
    case.main()
