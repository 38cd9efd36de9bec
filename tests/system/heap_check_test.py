# SPDX-License-Identifier: Apache-2.0
"""The whole-heap check: every trigger alone, the conditions it needs, and how far the walk goes."""

import signal

import case
from promise import promise
from report_text import take_reports

BASE = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0 QUARL_SLOPOVER_API=0 "
# trigger: items, the commands that run one check, and a command that must not
TRIGGERS = {
    "malloc": ("QUARL_SLOPOVER_MALLOC=1", ["malloc 10", "memalign 16 10", "realloc 0 10", "calloc 1 10"], "free 0"),
    "free": ("QUARL_SLOPOVER_FREE=1", ["free 0", "realloc 0 10"], "malloc 10"),
    "api": ("QUARL_SLOPOVER_API=1", ["check"], "malloc 10"),
    "timer": ("QUARL_TIMER=1 QUARL_SLOPOVER_TIMER=1", [f"raise {signal.SIGALRM}"], "check"),
    "user": ("QUARL_SLOPOVER_USER=40", ["raise 40"], "check"),
    "user 14": ("QUARL_SLOPOVER_USER=14", [f"raise {signal.SIGALRM}"], "check"),
    "dump": ("", [f"raise {signal.SIGUSR1}"], "check"),
}


class HeapCheck(case.Case):
    def damaged(self, config):
        """A driver with sound blocks and two damaged tails between them."""
        driver = self.driver(config)
        blocks = [driver.malloc(size) for size in (10, 20, 30, 40, 50)]
        for index in (1, 3):
            driver.fill(blocks[index] + 10 * (index + 1), 0, 1)
        return driver, [blocks[1], blocks[3]]

    def found(self, driver, command):
        before = len(driver.out)
        driver.do(command)
        driver.read_some(0)  # what it wrote stands in the pipe when the answer does
        reports, rest = take_reports(driver.out[before:])
        self.assertEqual(rest, "")
        return [report.address for report in reports]

    def test_every_trigger_checks_and_nothing_else_does(self):
        for name, (items, commands, other) in TRIGGERS.items():
            with self.subTest(name):
                driver, damaged = self.damaged(BASE + items)
                for command in commands:
                    self.assertEqual(self.found(driver, command), damaged, command)
                self.assertEqual(self.found(driver, other), [])
                self.assert_ends(driver, driver.out)

    def test_conditions_common_to_all_triggers(self):
        for name, (items, commands, _) in TRIGGERS.items():
            if name == "dump":
                continue
            with self.subTest(name):
                driver = self.driver(f"{BASE} {items} QUARL_SLOPOVER=0")
                block = driver.malloc(10)
                driver.set_word(block - 4, 0)
                self.assertEqual(self.found(driver, commands[0]), [])
                self.assert_ends(driver)

    def test_triggers_that_are_off(self):
        cases = [("QUARL_SLOPOVER_TIMER=1", "raise 14"), ("QUARL_SLOPOVER_THREAD=1", "malloc 1"),
                 ("QUARL_MEM_CHECK=1", "malloc 1"), ("QUARL_MEM_CHECK_IN_HOOK=1", "malloc 1"), ("", "check")]
        for items, command in cases:
            with self.subTest(items):
                driver, _ = self.damaged(BASE + items)
                self.assertEqual(self.found(driver, command), [])
                self.assert_ends(driver)

    def test_broken_head_ends_the_walk(self):
        driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        self.assertEqual(self.found(driver, "check"), [])
        blocks = [driver.malloc(16) for _ in range(4)]
        for index in (0, 3):
            driver.fill(blocks[index] + 16, 0, 1)
        driver.set_word(blocks[2] - 4, 1)
        self.assertEqual(self.found(driver, "check"), [blocks[0], blocks[2]])
        self.assertEqual(self.found(driver, "check"), [blocks[0], blocks[2]])
        self.assert_ends(driver, driver.out)

    @promise("When a damaged link loses blocks from the list, one line on standard error says so.")
    def test_damaged_links_end_the_walk(self):
        driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        blocks = [driver.malloc(16) for _ in range(3)]
        driver.fill(blocks[2] + 16, 0, 1)
        link = driver.word(blocks[1] - 8)
        for target in (blocks[1], blocks[0], 0):
            driver.set_word(blocks[1] - 8, target | link & 3)
            self.assertEqual(self.found(driver, "check"), [])
        driver.await_match("out of reach", "err")
        told = driver.err
        self.assertRegex(told, rf"^quarl: the list of live blocks breaks off at 0x{blocks[1]:x}: \d+ of \d+ blocks are out of reach\n$")
        driver.set_word(blocks[1] - 8, link)
        self.assertEqual(self.found(driver, "check"), [blocks[2]])
        self.assert_ends(driver, driver.out, told)

    @promise("No request is lost; several of one kind may be answered by one.")
    def test_handler_of_a_trigger_survives_a_busy_lock(self):
        """Checks asked for by a signal while threads are in the hooks all run: none is lost, none tears a report."""
        driver, damaged = self.damaged(BASE + "QUARL_SLOPOVER_USER=40")
        worker = driver.spawn()
        worker.send("repeat 20000 free 0")
        for _ in range(50):
            before = len(driver.out)
            driver.signal(40)
            driver.await_that(lambda: driver.out.count("call trace") >= 2 + driver.out[:before].count("call trace"), "check")
        driver.answer(worker.number)
        self.assertEqual(driver.finish(), 0)
        reports, rest = take_reports(driver.out)
        self.assertEqual(({report.address for report in reports}, rest, len(reports) % 2), (set(damaged), "", 0))


if __name__ == "__main__":
    case.main()
