# SPDX-License-Identifier: Apache-2.0
"""The driver program: every attribute is a command, sent and answered one line at a time (victims/driver)."""

import re
import signal
from pathlib import Path

from process import Process


class Answer(int):
    """The value of a command; `number` is errno, or the process id of a child."""

    def __new__(cls, value, number):
        self = super().__new__(cls, value)
        self.number = number
        return self


def word(argument):
    return f"{argument:#x}" if isinstance(argument, int) and argument >= 0 else str(argument)


class Driver(Process):
    def __init__(self, target, **options):
        super().__init__(target, target.victim("driver"), **options)
        self.positions = {}  # behind the last answer of each worker
        self.tasks = {0: self.pid}
        self.answer()

    def send(self, line):
        self.popen.stdin.write(line.encode() + b"\n")
        self.popen.stdin.flush()

    def answer(self, worker=0):
        pattern = re.compile(rf"^{worker} 0x([0-9a-f]+) (-?\d+)\n", re.M)
        start = self.positions.get(worker, 0)
        match = self.await_that(lambda: pattern.search(self.text["said"], start), f"answer of {worker}")
        self.positions[worker] = match.end()
        return Answer(int(match[1], 16), int(match[2]))

    def do(self, line):
        self.send(line)
        return self.answer()

    def stopped_child(self, commands):
        """The id of a child that has stopped itself, and runs the commands when it is continued."""
        self.send(f"fork raise {int(signal.SIGSTOP)};{commands}")

        def stopped():
            child = Path(f"/proc/{self.pid}/task/{self.pid}/children").read_text().strip()
            return child and Path(f"/proc/{child}/stat").read_text().rsplit(") ")[1][0] == "T" and int(child)
        return self.await_that(stopped, "a stopped child")

    def spawn(self):
        task = self.do("spawn")
        worker = len(self.tasks)
        self.tasks[worker] = int(task)
        return Worker(self, worker)

    def read(self, symbol):
        return self.word(self.symbol(symbol))

    def write(self, symbol, value):
        return self.set_word(self.symbol(symbol), value)

    def __getattr__(self, command):
        return lambda *arguments: self.do(" ".join([command, *map(word, arguments)]))


class Worker:
    def __init__(self, driver, number):
        self.driver = driver
        self.number = number
        self.tid = driver.tasks[number]

    def send(self, line):
        self.driver.send(f"@{self.number} {line}")

    def do(self, line):
        self.send(line)
        return self.driver.answer(self.number)

    def __getattr__(self, command):
        return lambda *arguments: self.do(" ".join([command, *map(word, arguments)]))
