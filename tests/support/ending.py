# SPDX-License-Identifier: Apache-2.0
"""Ends of a process that the checker asks for: an exit as the program's own, whose handlers need checker and threads."""

import os

from log_file import read_log

EXIT_WORKER = 901  # as which the driver's exit handler answers
RELEASED, MADE, MADE_BESIDE = 1001, 1002, 1003  # sizes
TERMINATE = 15


class Ending:
    """The exit handler of a driver releases a checked block, makes one, uses more stack than small threads have, and
    waits until the main thread has made a block, too, unless that one has ended."""

    def __init__(self, case, driver, main_ended=False):
        self.case, self.driver, self.main_ended = case, driver, main_ended
        self.fifo, self.begun = case.directory / "fifo", case.directory / "begun"
        os.mkfifo(self.fifo)
        descriptor = driver.open("fifo", os.O_RDWR)
        block = driver.malloc(RELEASED)
        driver.do(f"at_exit free {block:#x};malloc {MADE};stack 1000000;open begun {os.O_CREAT};wait {descriptor};"
                  f"blocked {TERMINATE}")

    def check(self, out):
        """Called when the end was asked for; the output of the whole run is to be `out`."""
        self.driver.await_that(self.begun.exists, "the exit handler")
        if not self.main_ended:
            self.driver.malloc(MADE_BESIDE)
        self.fifo.write_bytes(b"x")
        self.case.assertEqual(self.driver.answer(EXIT_WORKER), 0, "the handler runs with signals blocked")
        self.case.assertEqual((self.driver.finish(end_input=False), self.driver.out), (0, out))
        sizes = [record.size for record in read_log(self.case.log_path(self.driver, "quarl")).records]
        self.case.assertNotIn(RELEASED, sizes)
        self.case.assertIn(MADE, sizes)
        if not self.main_ended:
            self.case.assertIn(MADE_BESIDE, sizes)
