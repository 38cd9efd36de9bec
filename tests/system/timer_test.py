# SPDX-License-Identifier: Apache-2.0
"""The checker clock and the chain of automatic snapshots."""

import errno
import os
import signal
import struct
import time

import case
from header import read_header
from log_file import ALLOCATED, read_chain, read_log
from promise import promise
from report_text import take_reports

CLOCK = "QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1 "
STILL = "QUARL_TIMER_SIG=SIGUSR2 " + CLOCK.replace("INTERVAL=1", "INTERVAL=1000")  # ticks only when the test makes them


class Clock(case.Case):
    def now(self, driver):
        return read_header(driver, driver.malloc(10)).time

    def test_headers_and_reports_carry_the_time_of_the_last_tick(self):
        driver = self.driver(CLOCK + "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        block = driver.malloc(10)
        made = read_header(driver, block).time
        driver.fill(block + 10, 0, 1)
        first = self.now(driver)
        self.assertLessEqual(abs(first - time.time()), 2)
        later = driver.await_that(lambda: (now := self.now(driver)) >= first + 2 and now, "two ticks")
        self.assertLessEqual(abs(later - time.time()), 2)
        driver.check()
        [report], rest = take_reports(driver.out)
        self.assertEqual((report.time, rest), (made, ""))
        self.assert_ends(driver, driver.out)

    def test_no_library_in_front_of_the_c_librarys_clock_is_asked(self):
        """It might wait for a lock whose holder waits for the checker's."""
        self.configure(CLOCK + "QUARL_OUTPUT_LOG=1")
        driver = self.driver(preload=False, environment={
            "LD_PRELOAD": f"{self.target.library}:{self.target.victim('libclocks.so')}"})
        self.assertLessEqual(abs(self.now(driver) - time.time()), 2)
        driver.do(f"raise {signal.SIGUSR1}")
        self.assertLessEqual(abs(read_log(self.log_path(driver, "quarlAll")).time - time.time()), 60)
        self.assert_ends(driver)

    def test_which_files_start_the_clock(self):
        cases = [("QUARL_HEAD_TIME=2", True), ("", False), ("QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=5", False),
                 (CLOCK + "QUARL_TIME_INTERVAL=0", True), ("QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=0", False),
                 ("QUARL_TIMER_SIG=SIG45 " + CLOCK, True)]
        for config, runs in cases:
            with self.subTest(config):
                driver = self.driver(config)
                self.assertEqual(self.now(driver) > 0, runs)
                self.assert_ends(driver)

    @promise("With `QUARL_TIMER_SIG` the timer takes another signal, and `SIGALRM` is left to the application.")
    def test_other_signal_leaves_sigalrm_to_the_program(self):
        driver = self.driver("QUARL_TIMER_SIG=SIGUSR2 " + CLOCK)
        self.assertGreater(self.now(driver), 0)
        driver.do(f"handle {signal.SIGALRM} malloc 77")
        driver.do(f"raise {signal.SIGALRM}")
        self.assertEqual(read_header(driver, driver.answer(900)).size, 77)
        driver.do(f"raise {signal.SIGUSR2}")  # the checker's
        self.assert_ends(driver)
        driver = self.driver("QUARL_TIMER_SIG=SIGUSR2 " + CLOCK)
        driver.send(f"raise {signal.SIGALRM}")  # its default action
        self.assertEqual(driver.finish(), -signal.SIGALRM)

    @promise("`SIGALRM` belongs to the interval timer, or to `QUARL_SLOPOVER_TIMER`: the handler that is installed"
             " last has it.")
    def test_handler_installed_last_has_the_signal(self):
        driver = self.driver(CLOCK + "QUARL_TIMER=1 QUARL_SLOPOVER_TIMER=1 QUARL_SLOPOVER_EXIT=0")
        block = driver.malloc(10)
        made = read_header(driver, block).time
        driver.fill(block + 10, 0, 1)
        driver.await_match("call trace.*call trace")  # checked at every tick, and the clock stands
        self.assertEqual(self.now(driver), made)
        driver.set_word(block + 10, 0xFEDABEEB)
        self.assertEqual(driver.finish(), 0)


    @promise("A tick of the interval timer (`QUARL_HEAD_TIME=2`) comes to the main thread: what the kernel does not begin anew "
             "behind a handler (`select`, `poll`, `epoll_wait`, `nanosleep`) ends there early, with `EINTR`; `read` goes on.")
    def test_calls_that_a_tick_ends(self):
        pipe = self.directory / "pipe"
        os.mkfifo(pipe)
        driver = self.driver(CLOCK)
        worker = driver.spawn()
        for call in ("select", "poll", "epoll_wait", "nanosleep"):
            answer = driver.do(f"idle {call} 100000")
            self.assertEqual((answer, answer.number), (0xFFFFFFFF, errno.EINTR), call)
            self.assertEqual(worker.do(f"idle {call} 1200"), 0, call)
        descriptor = driver.open("pipe", os.O_RDWR)
        worker.send("idle poll 2500")  # two ticks
        driver.send(f"wait {descriptor}")
        self.assertEqual(driver.answer(worker.number), 0)
        pipe.write_bytes(b"x")
        self.assertEqual(driver.answer(), 1)
        self.assert_ends(driver)


class Chain(case.Case):
    def check_chain(self, path):
        chain = read_chain(path)
        self.assertEqual([snapshot.number for snapshot in chain], list(range(1, len(chain) + 1)))
        times = [snapshot.time for snapshot in chain]
        self.assertEqual(times, sorted(times))
        return chain

    def test_detailed_snapshots(self):
        driver = self.driver(CLOCK + "QUARL_SNAP_INTERVAL=1 QUARL_SNAP_DETAIL=1 QUARL_PROF=1 QUARL_THREAD=1")
        path = self.log_path(driver, "quarl_autosnap")
        self.assertFalse(path.exists())
        mapping = driver.do("mmap 0 4096 3 34 -1 0")
        blocks = [driver.malloc(size) for size in range(1, 151)]
        driver.await_that(lambda: path.exists() and len(read_chain_when_whole(path)) >= 3, "three snapshots")
        self.assert_ends(driver)
        chain = self.check_chain(path)
        last = chain[-1]
        self.assertEqual((last.name, last.pid), (self.target.process_name("driver"), driver.pid))
        expected = [("malloc", ALLOCATED, size, block) for size, block in enumerate(blocks, 1)] + [("mmap", ALLOCATED, 4096, mapping)]
        self.assertEqual([record.brief() for record in last.records], expected)
        self.assertEqual(last.stats.counts()["malloc"], (150, 0, 150 * 151 // 2))
        self.assertEqual(last.threads[driver.pid].counts()["malloc"][0], 150)
        self.assertEqual(last.maps[:8], read_log(self.log_path(driver, "quarl")).maps[:8])
        for one, two in zip(chain[1:-2], chain[2:-1]):  # the one at exit comes when it comes
            self.assertEqual(two.time - one.time, 1)

    def test_plain_snapshots_are_as_short_as_can_be(self):
        for threads, length in ((0, 88 + 32768 + 216), (1, 88 + 32768 + 216 + 49600)):
            driver = self.driver(CLOCK + f"QUARL_SNAP_INTERVAL=1 QUARL_SNAP_DETAIL=0 QUARL_PROF=1 QUARL_THREAD={threads}")
            self.assertNotEqual(driver.malloc(10), 0)  # without details it has no record
            path = self.log_path(driver, "quarl_autosnap")
            driver.await_that(lambda: path.exists() and path.stat().st_size >= 2 * length, "two snapshots")
            self.assert_ends(driver)
            chain = self.check_chain(path)
            self.assertEqual([snapshot.end - snapshot.start for snapshot in chain], [length] * len(chain))
            self.assertEqual([snapshot.record_count for snapshot in chain], [0] * len(chain))

    @promise("The last snapshot is written then, and the hooks are put back.")
    def test_exit_takes_the_last_snapshot(self):
        driver = self.driver(CLOCK + "QUARL_SNAP_INTERVAL=100 QUARL_SNAP_DETAIL=1")
        block = driver.malloc(10)
        self.assert_ends(driver)
        [snapshot] = self.check_chain(self.log_path(driver, "quarl_autosnap"))
        self.assertEqual([record.address for record in snapshot.records], [block])

    def test_tick_before_the_interval_is_over_writes_nothing(self):
        for interval in (100, 0):
            driver = self.driver(STILL + f"QUARL_SNAP_INTERVAL={interval}")
            for _ in range(3):
                driver.do(f"raise {signal.SIGUSR2}")
            driver.free(driver.malloc(10))
            path = self.log_path(driver, "quarl_autosnap")
            self.assertFalse(path.exists())
            self.assert_ends(driver)
            self.assertEqual(path.exists(), interval != 0)

    def test_next_snapshot_is_due_an_interval_later(self):
        interval = 3
        driver = self.driver(STILL + f"QUARL_SNAP_INTERVAL={interval}")
        begin, path = time.time(), self.log_path(driver, "quarl_autosnap")
        for number in (1, 2):
            driver.await_that(lambda: time.time() >= begin + interval + 1, "the next snapshot to be due")
            begin = time.time()
            for _ in range(3):
                driver.do(f"raise {signal.SIGUSR2}")
            late = time.time() >= int(begin) + interval  # a machine as slow as that may take one more
            self.assertTrue(late or len(read_chain(path)) == number)
        driver.kill()

    def test_snapshots_while_threads_allocate(self):
        driver = self.driver("QUARL_TIMER_SIG=SIGUSR2 " + CLOCK + "QUARL_SNAP_INTERVAL=1 QUARL_SNAP_DETAIL=1")
        workers = [driver.spawn() for _ in range(4)]
        kept = [worker.malloc(10000) for worker in workers]
        path = self.log_path(driver, "quarl_autosnap")
        for worker in workers:
            worker.send("repeat 2000 realloc 0 24")
        for _ in range(20):
            driver.signal(signal.SIGUSR2)
        for worker in workers:
            driver.answer(worker.number)
        driver.await_that(lambda: path.exists() and len(read_chain_when_whole(path)) >= 2, "two snapshots")
        self.assert_ends(driver)
        for snapshot in self.check_chain(path):
            addresses = [record.address for record in snapshot.records]
            self.assertEqual(len(set(addresses)), len(addresses))
            if any(record.size == 24 for record in snapshot.records):  # not one from before the kept blocks
                self.assertLessEqual(set(kept), set(addresses))


def read_chain_when_whole(path):
    """The chain, or nothing while the library is in the middle of writing."""
    try:
        return read_chain(path)
    except (AssertionError, ValueError, IndexError, OSError, struct.error):
        return []


if __name__ == "__main__":
    case.main()
