# SPDX-License-Identifier: Apache-2.0
"""A victim process: started under the library, read with deadlines, signalled, and awaited."""

import contextlib
import ctypes
import fcntl
import os
import re
import selectors
import signal
import subprocess
import time
from pathlib import Path

from target import ANNOUNCE_DESCRIPTOR

DEADLINE = float(os.environ.get("QUARL_DEADLINE", 60))  # seconds that any condition may take on a loaded machine
SYS_TGKILL = 234
PARK_SIGNAL = 60
F_SETPIPE_SZ, PIPE_SIZE = 1031, 4096

# The number must be open here for the child to inherit whatever is put behind it.
os.dup2(os.open(os.devnull, os.O_RDWR), ANNOUNCE_DESCRIPTOR)
libc = ctypes.CDLL(None, use_errno=True)


class Process:
    def __init__(self, target, program, arguments=(), environment=(), directory=".", preload=True,
                 before_start=lambda: None):
        """before_start runs in the new process, which has its id by then, before the program takes its place."""
        self.target = target
        command, variables = target.command(program, arguments, dict(environment), preload)
        said_read, said_write = os.pipe()
        self.popen = subprocess.Popen(
            command, env=variables, cwd=directory, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, pass_fds=(ANNOUNCE_DESCRIPTOR,),
            preexec_fn=lambda: (os.dup2(said_write, ANNOUNCE_DESCRIPTOR), before_start()))
        os.close(said_write)
        self.pid = self.popen.pid
        self.text = {"out": "", "err": "", "said": ""}
        self.selector = selectors.DefaultSelector()
        for stream, name in ((self.popen.stdout.fileno(), "out"), (self.popen.stderr.fileno(), "err"), (said_read, "said")):
            self.selector.register(stream, selectors.EVENT_READ, name)
        self.said_read = said_read

    out = property(lambda self: self.text["out"])
    err = property(lambda self: self.text["err"])

    def read_some(self, seconds):
        for key, _ in self.selector.select(seconds):
            data = os.read(key.fd, 65536)
            if data:
                self.text[key.data] += data.decode("latin-1")
            else:
                self.selector.unregister(key.fd)

    def await_that(self, condition, what):
        """Reads on until the condition holds and returns its value; fails at the deadline or at the end of output."""
        end = time.monotonic() + DEADLINE
        while not (value := condition()):
            if time.monotonic() > end or not self.selector.get_map():
                raise AssertionError(f"waited in vain for {what}; out={self.out!r} err={self.err!r}")
            self.read_some(0.05)
        return value

    def await_match(self, pattern, stream="out"):
        return self.await_that(lambda: re.search(pattern, self.text[stream], re.S), f"{pattern!r} on {stream}")

    def said(self, name):
        """The values announced under a name so far and until one is there."""
        pattern = re.compile(rf"^{name} 0x([0-9a-f]+)$", re.M)
        self.await_that(lambda: pattern.search(self.text["said"]), f"announced {name}")
        return [int(value, 16) for value in pattern.findall(self.text["said"])]

    def signal(self, number, tid=None):
        if libc.syscall(SYS_TGKILL, self.pid, tid or self.pid, self.target.host_signal(number)) != 0:
            raise ProcessLookupError(f"no task {tid} in {self.pid}")

    def waits_for_signal(self, tid):
        """Whether a task sleeps in the wait for a signal, as a parked thread does."""
        with open(f"/proc/{tid}/wchan") as file:
            return "sigtimedwait" in file.read()

    def release(self, tid=None):
        """Ends a thread, the main thread when no task is named, as soon as it is parked."""
        task = tid or self.pid
        self.await_that(lambda: self.waits_for_signal(task), f"{task} to be parked")
        self.signal(PARK_SIGNAL, task)

    def fill_output(self):
        """Leaves no room in its standard output, which nobody reads until drain(); what stands in it."""
        self.selector.unregister(self.popen.stdout)
        fcntl.fcntl(self.popen.stdout, F_SETPIPE_SZ, PIPE_SIZE)
        filled = 0
        with open(f"/proc/{self.pid}/fd/1", "wb", buffering=0) as pipe:
            os.set_blocking(pipe.fileno(), False)
            with contextlib.suppress(BlockingIOError):
                while (count := pipe.write(b"#" * PIPE_SIZE)) is not None:
                    filled += count
        os.set_blocking(self.popen.stdout.fileno(), True)
        return "#" * filled

    def drain(self):
        self.selector.register(self.popen.stdout.fileno(), selectors.EVENT_READ, "out")

    def tasks_that_wait(self, where):
        """Those of its tasks that sleep in a function of the kernel with such a name."""
        tasks = f"/proc/{self.pid}/task"
        waiting = []
        for task in os.listdir(tasks):
            with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # ended meanwhile
                if where in Path(f"{tasks}/{task}/wchan").read_text():
                    waiting.append(int(task))
        return waiting

    def kill(self):
        self.popen.send_signal(signal.SIGKILL)

    def finish(self, end_input=True):
        """Ends its input, reads to the end and returns the exit status (negative: a signal)."""
        if end_input:
            self.popen.stdin.close()
        end = time.monotonic() + DEADLINE
        while self.selector.get_map():
            if time.monotonic() > end:
                raise AssertionError(f"does not end; out={self.out!r} err={self.err!r}")
            self.read_some(0.2)
        return self.popen.wait(DEADLINE)

    def discard(self):
        if self.popen.poll() is None:
            self.kill()
        for stream in (self.popen.stdin, self.popen.stdout, self.popen.stderr):
            stream.close()
        self.selector.close()
        os.close(self.said_read)
        self.popen.wait()
