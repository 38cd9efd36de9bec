# SPDX-License-Identifier: Apache-2.0
"""Signals that come while a thread is inside the checker: it stands in a message to a full pipe, with the lock held."""

import os
import resource
import signal
import time

import case
from header import read_header
from log_file import read_chain, read_log
from promise import promise
from report_text import take_reports
from tables import saved

HANDLER = 900  # as which the driver's signal handler answers


class Signals(case.Case):
    def stuck(self, config, command="check", prepare=lambda driver: None):
        """A driver with a worker that stands in the report about a damaged block, which is returned, and what was in
        the pipe before."""
        driver = self.driver(config)
        prepare(driver)
        worker = driver.spawn()
        block = driver.malloc(10)
        self.made = read_header(driver, block).time
        driver.fill(block + 10, 0, 1)
        before = driver.fill_output()
        worker.send(command)
        driver.await_that(lambda: worker.tid in driver.tasks_that_wait("pipe_w"), "a full pipe")
        return driver, worker, block, before

    @promise("What a signal asks of the checker (`QUARL_SIG`, the interval timer, the check signals) while a "
             "thread is inside it stays pending, and whoever releases the lock carries it out before going on.",
             "No request is lost; several of one kind may be answered by one.")
    def test_requests_stay_pending_until_the_lock_is_released(self):
        """The handlers return at once, and what they asked for is done by the worker before it goes on."""
        driver, worker, block, before = self.stuck("QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_USER=40 QUARL_PRINT_PROFINFO=1 "
                                                   "QUARL_SLOPOVER_EXIT=0")
        for _ in range(3):
            driver.do("raise 40")  # answered: the handler does not wait for the lock
            driver.do(f"raise {signal.SIGUSR1}")
        driver.signal(40, worker.tid)
        driver.drain()
        driver.answer(worker.number)
        driver.read_some(0)
        self.assertEqual(driver.out[: len(before)], before)
        # its own report, that of the check, then the dump with its table, a report and its line
        reports, rest = take_reports(driver.out[len(before):])
        begin = rest.index("###### slop")
        table, (last, rest) = rest[:begin], take_reports(rest[begin:])
        self.assertEqual([report.address for report in reports + last], [block] * 3)
        self.assertEqual((table.count("Program memory prof info"), rest), (1, saved(self.log_path(driver, "quarlAll"))))
        driver.set_word(block + 10, 0xFEDABEEB)
        self.assertEqual(driver.finish(), 0)

    @promise("What a signal asks of the checker (`QUARL_SIG`, the interval timer, the check signals) while a "
             "thread is inside it stays pending, and whoever releases the lock carries it out before going on.")
    def test_timer_tick_stays_pending(self):
        clock = "QUARL_TIMER_SIG=SIGUSR2 QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1000 "
        driver, worker, block, _ = self.stuck(clock + "QUARL_SNAP_INTERVAL=1 QUARL_SNAP_DETAIL=1 QUARL_SLOPOVER_EXIT=0")
        path = self.log_path(driver, "quarl_autosnap")
        driver.await_that(lambda: time.time() >= self.made + 2, "the next snapshot to be due")
        driver.do(f"raise {signal.SIGUSR2}")
        self.assertFalse(path.exists())
        driver.drain()
        driver.answer(worker.number)
        self.assertIn(block, [record.address for record in read_chain(path)[0].records])
        driver.kill()

    @promise("Whatever is printed, but for fault reports, is written behind the lock: an output that nobody reads stops the thread that "
             "prints, and no other.",
             "`exit` may be called anywhere, also in a signal handler that interrupted the checker.")
    def test_tables_for_nobody(self):
        """A dump and an exit on a thread stop there, in the first text; the others allocate, fork and dump."""
        for command in (f"raise {signal.SIGUSR1}", "exit 3"):
            with self.subTest(command):
                driver = self.driver("QUARL_PRINT_PROFINFO=1 QUARL_SLOPOVER_EXIT=0")
                worker = driver.spawn()
                driver.malloc(10)
                before = driver.fill_output()
                worker.send(command)
                driver.await_that(lambda: worker.tid in driver.tasks_that_wait("pipe_w"), "a full pipe")
                driver.free(driver.malloc(20))
                self.assertEqual(driver.do("fork leave 4"), 4 << 8)
                driver.drain()
                if "exit" in command:
                    self.assertEqual(driver.finish(end_input=False), 3)
                else:
                    driver.answer(worker.number)
                    driver.read_some(0)
                texts = driver.out[len(before):]
                places = [texts.index(text) for text in ("Program memory prof info", "Prof info of unfreed memory")]
                self.assertEqual((driver.out[: len(before)], texts.count("prof info #"), places), (before, 1, sorted(places)))
                driver.kill()

    @promise("Whatever is printed, but for fault reports, is written behind the lock: an output that nobody reads stops the thread that "
             "prints, and no other.")
    def test_failures_for_nobody(self):
        """Two threads stand in their messages; under the lock it would be one."""
        driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=280 QUARL_SLOPOVER_EXIT=0")
        worker = driver.spawn()
        driver.limit(resource.RLIMIT_FSIZE, self.log_path(driver, "quarlAll").stat().st_size)
        driver.fill_output()
        worker.send("malloc 10")
        driver.await_that(lambda: worker.tid in driver.tasks_that_wait("pipe_w"), "a full pipe")
        driver.send("malloc 20")  # which can say nothing either
        driver.await_that(lambda: len(driver.tasks_that_wait("pipe_w")) == 2, "a full pipe")
        driver.drain()
        for number in (0, worker.number):
            self.assertNotEqual(driver.answer(number), 0)
        driver.read_some(0)
        self.assertEqual(driver.out.count("write log file failed,and error is File too large\n"), 2)
        driver.kill()

    @promise("With `QUARL_CONTRACT=libc` an ignored `SIGUSR1` that the process inherits stays ignored, unless the "
             "configuration names the signal.")
    def test_signal_that_is_inherited_ignored(self):
        cases = [("libc", "", True, False), ("libc", "QUARL_SIG=1", True, False), ("libc", "QUARL_SIG=SIGUSR1", True, True),
                 ("libc", "QUARL_SIG=10", True, True), ("libc", "", False, True), ("plain", "", True, True)]
        for contract, config, ignored, dumps in cases:
            with self.subTest(contract, config=config, ignored=ignored):
                before = (lambda: signal.signal(signal.SIGUSR1, signal.SIG_IGN)) if ignored else lambda: None
                driver = self.driver(config + " QUARL_SLOPOVER_EXIT=0", before_start=before,
                                     environment={"QUARL_CONTRACT": contract})
                path = self.log_path(driver, "quarl")
                empty = path.stat().st_size
                driver.malloc(10)
                driver.do(f"raise {signal.SIGUSR1}")
                self.assertEqual(path.stat().st_size > empty, dumps)
                self.assert_ends(driver)

    @promise("A fork waits for the lock, so the child finds everything whole.")
    def test_fork_waits_for_the_lock(self):
        driver, _, block, before = self.stuck("QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        driver.send("fork malloc 20;check")

        def waits():
            with open(f"/proc/{driver.pid}/wchan") as file:
                return "futex" in file.read()
        driver.await_that(waits, "the wait for the lock")
        driver.drain()
        self.assertEqual(driver.answer(), 0)
        driver.set_word(block + 10, 0xFEDABEEB)
        self.assertEqual(driver.finish(), 0)
        reports, rest = take_reports(driver.out[len(before):])
        self.assertEqual(([report.address for report in reports], rest), ([block] * 2, ""))

    def test_waits_of_the_program_go_on_behind_a_handler(self):
        """The three kinds of signals; no system call of the program ends early for them."""
        clock = "QUARL_TIMER_SIG=SIGUSR2 QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1000 "
        driver = self.driver(clock + "QUARL_SLOPOVER_USER=40 QUARL_SLOPOVER_EXIT=0 QUARL_PRINT_PROFINFO=0")
        os.mkfifo(self.directory / "fifo")
        descriptor = driver.open("fifo", os.O_RDWR)
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        path = self.log_path(driver, "quarl")
        empty = path.stat().st_size
        driver.send(f"wait {descriptor}")

        def waits():
            with open(f"/proc/{driver.pid}/wchan") as file:
                return "pipe_read" in file.read()
        driver.await_that(waits, "the wait")
        driver.signal(signal.SIGUSR2)
        driver.signal(40)
        driver.await_that(lambda: driver.out.count("call trace") == 1, "check")
        driver.signal(signal.SIGUSR1)
        driver.await_that(lambda: path.stat().st_size > empty, "dump")
        driver.await_that(waits, "the wait")
        with open(self.directory / "fifo", "wb", buffering=0) as fifo:
            fifo.write(b"x")
        answer = driver.answer()
        self.assertEqual((answer, answer.number), (1, 0))
        driver.kill()

    def in_handler(self, driver, worker, command):
        driver.do(f"handle {signal.SIGUSR2} {command}")
        driver.signal(signal.SIGUSR2, worker.tid)
        return driver.answer(HANDLER)

    @promise("A handler of the application that interrupts the checker and allocates there is served by the raw "
             "allocator, past the checker; what it releases of checked blocks there stays where it is until exit.")
    def test_handler_that_allocates_inside_the_checker(self):
        """Its block has no header; the checked block that it releases is not touched, and is found at exit."""
        for config, call in (("QUARL_SLOPOVER_MALLOC=1", "malloc 11"), ("", "check")):
            with self.subTest(call):
                self.allocate_in_handler(*self.stuck(f"QUARL_SLOPOVER_EXIT=0 {config}", call)[:3])

    def allocate_in_handler(self, driver, worker, block):
        made = self.in_handler(driver, worker, "malloc 24")
        self.assertNotEqual((made, driver.word(made - 4) & ~3), (0, made))
        grown = self.in_handler(driver, worker, f"realloc {made} 5000")
        self.in_handler(driver, worker, f"free {block}")
        self.in_handler(driver, worker, f"free {grown}")
        self.assertEqual(driver.word(block - 4) & ~3, block)
        driver.drain()
        driver.answer(worker.number)
        driver.set_word(block + 10, 0xFEDABEEB)
        driver.free(driver.malloc(100))
        self.assertEqual((driver.finish(), driver.err), (0, ""))
        self.assertIn(block, [record.address for record in read_log(self.log_path(driver, "quarl")).records])

    @promise("`exit` may be called anywhere, also in a signal handler that interrupted the checker.")
    def test_exit_in_a_handler_inside_the_checker(self):
        driver, worker, block, _ = self.stuck("QUARL_SLOPOVER_EXIT=0")
        driver.do(f"handle {signal.SIGUSR2} exit 9")
        driver.signal(signal.SIGUSR2, worker.tid)
        driver.drain()
        self.assertEqual((driver.finish(end_input=False), driver.err), (9, ""))
        self.assertIn(block, [record.address for record in read_log(self.log_path(driver, "quarl")).records])

    def cancel_one(self, driver):
        """The first cancellation loads a library, for which the C library allocates."""
        first = driver.spawn()
        driver.cancel(first.number)
        driver.said("ended")

    @promise("Nothing that runs under the lock is a cancellation point, so a cancelled thread never takes the lock"
             " with it.")
    def test_cancelled_thread_leaves_the_lock_free(self):
        """The write that it stands in is none of the places where a thread may be cancelled."""
        driver, worker, block, before = self.stuck("QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0", prepare=self.cancel_one)
        self.assertEqual(driver.cancel(worker.number), 0)
        driver.drain()
        driver.await_that(lambda: worker.tid in driver.said("ended"), "its end")  # behind the check: on the way to its next command
        driver.free(driver.malloc(100))
        driver.set_word(block + 10, 0xFEDABEEB)
        self.assertEqual(driver.finish(), 0)
        [report], rest = take_reports(driver.out[len(before):])
        self.assertEqual((report.address, rest), (block, ""))


if __name__ == "__main__":
    case.main()
