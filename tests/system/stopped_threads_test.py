# SPDX-License-Identifier: Apache-2.0
"""A thread that a fault or a limit has stopped: how it waits, how it ends, and what is missing where it does."""

import ctypes
import os
import unittest

import case
from promise import promise
from report_text import double_free, exit_line, take_reports

QUIET_END = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0 "
PARK_SIGNAL = 60
NEW_MOUNTS, BIND, PRIVATE_BELOW = 0x20000, 0x1000, 0x44000  # of unshare and mount


class StoppedThreads(case.Case):
    def stopped(self, driver, worker):
        """Stops a worker by a second release; the block is returned."""
        block = driver.malloc(50)
        driver.free(block)
        worker.send(f"free {block:#x}")
        driver.await_that(lambda: driver.out.endswith(double_free(block)), "report")
        return block

    def released(self, driver, worker):
        driver.release(worker.tid)
        driver.await_that(lambda: driver.out.endswith(exit_line(worker.tid)), "its end")
        driver.await_that(lambda: not os.path.exists(f"/proc/{driver.pid}/task/{worker.tid}"), "the end of the task")

    @promise("A thread that a fault or a limit stops holds no lock of the checker and waits for signal 60, which, "
             "sent to that thread, never ends the process.",
             "When the signal comes, the thread ends alone: it can be joined, the destructors of its thread-specific and "
             "thread-local data run, and no frame of the program is unwound.")
    def test_waits_for_its_signal_and_ends_like_a_thread(self):
        """The lock is free, and the thread's destructors run when the signal has come."""
        for config, stop in (("", None), ("QUARL_ALL=1 QUARL_PROF=1 QUARL_HEAP_LIMIT=1", "malloc 5000")):
            with self.subTest(config):
                driver = self.driver(QUIET_END + config)
                worker, other = driver.spawn(), driver.spawn()
                if stop:
                    driver.write("heap_limit", 1000)
                    worker.send(stop)
                else:
                    self.stopped(driver, worker)
                driver.await_that(lambda: driver.waits_for_signal(worker.tid), "the wait")
                driver.write("heap_limit", 0xFFFFFFFF)
                for each in (driver, other):
                    each.free(each.malloc(100))
                self.assertNotIn("ended", driver.text["said"])
                self.released(driver, worker)
                self.assertEqual(driver.said("ended"), [worker.tid])
                other.free(other.malloc(100))
                self.assert_ends(driver, driver.out)

    @promise("A thread that a fault or a limit stops holds no lock of the checker and waits for signal 60, which, "
             "sent to that thread, never ends the process.")
    def test_signal_that_comes_before_the_wait_ends_the_thread_alone(self):
        """Sent as soon as the report is there, it finds some threads on their way to the wait."""
        driver = self.driver(QUIET_END)
        workers = [driver.spawn() for _ in range(30)]
        for worker in workers:
            self.stopped(driver, worker)
            driver.signal(PARK_SIGNAL, worker.tid)
            driver.await_that(lambda: driver.out.endswith(exit_line(worker.tid)), "its end")
        driver.await_that(lambda: len(driver.said("ended")) == len(workers), "the destructors")
        self.assert_ends(driver, driver.out)

    @promise("When the signal comes, the thread ends alone: it can be joined, the destructors of its thread-specific and "
             "thread-local data run, and no frame of the program is unwound.",
             "What it held stays held, for its cleanup handlers do not run.")
    def test_no_frame_of_the_program_is_unwound(self):
        """A C++ thread with objects on its stack, below a function that nothing may be thrown out of."""
        process = self.run_victim("unwinding", config=QUIET_END)
        [tid] = process.said("thread")
        process.await_that(lambda: process.out.startswith("double free"), "report")
        process.release(tid)
        self.assertEqual(process.finish(), 0)
        self.assertEqual([name for name in ("specific", "local", "joined") if process.said(name)],
                         ["specific", "local", "joined"])
        self.assertNotRegex(process.text["said"], "left|cleaned")
        self.assertEqual((process.said("held"), process.err), ([1], ""))

    @promise("The rest of the process runs on.")
    def test_main_thread_leaves_the_others_running(self):
        driver = self.driver(QUIET_END)
        worker = driver.spawn()
        self.stopped(driver, worker)
        block = driver.malloc(20)
        driver.fill(block + 20, 0, 1)
        driver.send(f"free {block:#x}")
        driver.await_match(r"call trace :\n(\d+ : \w+\n)+")
        driver.release()
        driver.await_match("exit!!\n")
        driver.release(worker.tid)  # still parked
        self.assertEqual(driver.finish(), 0)  # with the last thread
        _, behind = driver.out.split("\n", 1)
        [report], rest = take_reports(behind)
        self.assertEqual((report.address, rest), (block, exit_line(driver.pid) + exit_line(worker.tid)))

    @promise("On a system without `libgcc_s.so.1`, which glibc's `pthread_exit` needs, the thread ends without "
             "those destructors.")
    def test_without_libgcc_it_ends_without_destructors(self):
        """The file is hidden from the program's process alone."""
        if os.geteuid() != 0:
            raise unittest.SkipTest("only root can hide a file")
        if self.target.emulated:
            libraries = [f"/usr/{self.target.triplet}/lib/libgcc_s.so.1"]
        else:
            roots = ("/usr/i686-linux-gnu/lib", "/lib/i386-linux-gnu", "/usr/lib/i386-linux-gnu", "/lib32", "/usr/lib32")
            libraries = [f"{root}/libgcc_s.so.1" for root in roots]
        libraries = [os.path.realpath(path) for path in libraries if os.path.exists(path)]
        libc = ctypes.CDLL(None, use_errno=True)

        def hide():
            done = [libc.unshare(NEW_MOUNTS), libc.mount(b"none", b"/", None, PRIVATE_BELOW, None)]
            done += [libc.mount(b"/dev/null", path.encode(), None, BIND, None) for path in libraries]
            if any(done):
                os._exit(99)
        driver = self.driver(QUIET_END, before_start=hide)
        worker = driver.spawn()
        block = self.stopped(driver, worker)
        self.released(driver, worker)
        self.assertNotIn("ended", driver.text["said"])
        driver.free(driver.malloc(10))
        self.assert_ends(driver, double_free(block) + exit_line(worker.tid))


if __name__ == "__main__":
    case.main()
