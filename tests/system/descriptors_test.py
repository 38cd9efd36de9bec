# SPDX-License-Identifier: Apache-2.0
"""The checker's descriptors: where they are, and that whatever the program puts in their place is left alone."""

import os
import re
import resource
import signal

import case
from log_file import read_log
from promise import promise

CLOEXEC, ALIVE = 0o2000000, "QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=280 "
CLOCK = "QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1 QUARL_SNAP_INTERVAL=1 "
LOWEST, ANNOUNCING = 100, 77


class Descriptors(case.Case):
    def high(self, pid):
        """{descriptor: path} of what a process has open from 100 on."""
        folder = f"/proc/{pid}/fd"
        return {int(name): os.readlink(f"{folder}/{name}") for name in os.listdir(folder) if int(name) >= LOWEST}

    def information(self, pid, descriptor):
        """(position, flags) of an open file."""
        with open(f"/proc/{pid}/fdinfo/{descriptor}") as file:
            text = file.read()
        return int(re.search(r"pos:\t(\d+)", text)[1]), int(re.search(r"flags:\t(\d+)", text)[1], 8)

    @promise("Log descriptors and the maps file lie at 100 and above and are close-on-exec.")
    def test_numbers_and_close_on_exec(self):
        for config, kind in ((ALIVE, "quarlAll"), ("", "quarl"), (CLOCK, "quarl_autosnap")):
            with self.subTest(kind):
                driver = self.driver(config)
                path = self.log_path(driver, kind)
                driver.await_that(path.exists, "log")
                high = driver.await_that(lambda: (now := self.high(driver.pid)) and str(path) in now.values() and now, "its descriptor")
                logs = sum(name.endswith(".log") for name in high.values())
                self.assertEqual((logs, len(high) - logs), (2 if config == CLOCK else 1, 1))
                for descriptor in high:
                    self.assertTrue(self.information(driver.pid, descriptor)[1] & CLOEXEC, high[descriptor])
                low = {os.readlink(f"/proc/{driver.pid}/fd/{name}") for name in range(3, ANNOUNCING)
                       if os.path.exists(f"/proc/{driver.pid}/fd/{name}")}
                self.assertFalse([name for name in low if name.endswith(".log")])
                self.assert_ends(driver)

    @promise("Where the limit of descriptors is lower they lie in the last quarter, and under a limit of 16 or less the checker "
             "keeps none.")
    def test_low_limits(self):
        for limit in (100, 80, 40, 20, 12, 6):
            with self.subTest(limit):
                driver = self.driver(ALIVE, environment={"QUARL_CONTRACT": "libc"},
                                     before_start=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit)))
                opened = {int(name) for name in os.listdir(f"/proc/{driver.pid}/fd")} - {0, 1, 2, ANNOUNCING}
                self.assertEqual(len(opened), 2 if limit > 16 else 0, opened)
                self.assertGreaterEqual(min(opened, default=limit), limit - limit // 4)
                self.assertEqual(driver.open("quarlcfg.ini", os.O_RDONLY), 3)
                driver.free(driver.malloc(10))
                self.assertEqual((driver.finish(), driver.out), (0, ""))
                self.assertEqual(len(self.files()), 1 if limit > 16 else 0)
                for name in self.files():
                    (self.directory / name).unlink()

    @promise("When the application has closed one of them, nothing is written to whatever has its number now, and "
             "nothing of the application's is closed.")
    def test_files_of_the_program_in_their_place_are_left_alone(self):
        """It closes every descriptor that it does not know, and has files of its own there before the checker looks."""
        mine = self.directory / "mine"
        content = b"the program's own\n" * 2000
        for config, kind in ((ALIVE, "quarlAll"), ("", "quarl")):
            with self.subTest(kind):
                mine.write_bytes(content)
                driver = self.driver(config)
                driver.malloc(10)
                taken = self.high(driver.pid)
                for descriptor in taken:
                    driver.dup2(driver.open("mine", os.O_RDWR), descriptor)
                driver.free(driver.malloc(20))
                driver.do(f"raise {signal.SIGUSR1}")
                driver.free(driver.malloc(30))
                for descriptor in taken:
                    self.assertEqual(os.readlink(f"/proc/{driver.pid}/fd/{descriptor}"), str(mine))
                    self.assertEqual(self.information(driver.pid, descriptor)[0], 0)
                self.assertEqual(driver.finish(), 0)
                self.assertEqual(mine.read_bytes(), content)

    def test_closed_descriptors_are_missed_by_nobody(self):
        for config, kind in ((ALIVE, "quarlAll"), ("", "quarl")):
            with self.subTest(kind):
                driver = self.driver(config)
                driver.malloc(10)
                for descriptor in self.high(driver.pid):
                    driver.close(descriptor)
                driver.free(driver.malloc(20))
                driver.do(f"raise {signal.SIGUSR1}")
                self.assertNotEqual(driver.malloc(30), 0)
                self.assertEqual((driver.finish(), driver.err), (0, ""))

    def test_standard_descriptors_are_left_to_the_program(self):
        """One that closes them all opens its own there next, also where the limit leaves no others."""
        driver = self.driver(ALIVE)
        driver.malloc(10)
        taken = self.high(driver.pid)
        driver.limit(resource.RLIMIT_NOFILE, LOWEST)
        for descriptor in (1, 2, *taken, *range(3, ANNOUNCING)):
            driver.close(descriptor)
        driver.free(driver.malloc(20))
        driver.do(f"raise {signal.SIGUSR1}")
        self.assertEqual([driver.open("mine", os.O_CREAT | os.O_RDWR) for _ in range(2)], [1, 2])
        self.assertEqual(driver.finish(), 0)

    @promise("It has none of its parent's log descriptors, timer and agent.",
             "Its log files are created when it first has something to write.")
    def test_child_has_none_of_its_parents_logs(self):
        """It makes one of its own when it has something to write."""
        for config, kind in ((ALIVE, "quarlAll"), ("", "quarl")):
            with self.subTest(kind):
                driver = self.driver(config)
                driver.malloc(10)
                child = driver.stopped_child("malloc 20;exit 0")
                own = self.log_path(driver, kind).with_name(self.log_path(driver, kind).name.replace(str(driver.pid), str(child)))
                high = self.high(child)
                self.assertEqual(([path for path in high.values() if path.endswith(".log")], own.exists()), ([], False))
                os.kill(child, signal.SIGCONT)
                self.assertEqual(driver.answer(), 0)
                self.assert_ends(driver)
                held = [20] if config else [10, 20]  # operations, or what is held
                self.assertEqual([record.size for record in read_log(own).records], held)
                self.assertEqual([record.size for record in read_log(self.log_path(driver, kind)).records], [10])


if __name__ == "__main__":
    case.main()
