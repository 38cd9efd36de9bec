# SPDX-License-Identifier: Apache-2.0
"""What the tests of the tool share: where things lie, and how the tool is called."""

import os
import select
import subprocess
import tempfile
import time
import unittest

BUILD = os.environ.get("QUARL_BUILD", os.path.join(os.path.dirname(__file__), "../../build"))
VICTIMS = os.environ.get("QUARL_VICTIMS", os.path.join(BUILD, "host/tests/tool"))
QUARL = os.path.realpath(os.path.join(BUILD, "host/quarl"))
SOURCE = os.path.realpath(os.path.join(os.path.dirname(__file__), "../.."))
DEADLINE = 60  # seconds; emulation on a busy machine is slow


def library(target):
    """The library of a target, or a skipped test while that target is not built."""
    path = os.path.realpath(os.path.join(BUILD, target, "libquarl.so"))
    if not os.path.exists(path):
        raise unittest.SkipTest(f"libquarl.so for {target} is not built")
    return path


def victim(target):
    path = os.path.realpath(os.path.join(VICTIMS, f"victim_{target}"))
    if not os.path.exists(path):
        raise unittest.SkipTest(f"no cross compiler for {target}")
    return path


class ToolTest(unittest.TestCase):
    """Every test runs in an empty directory of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quarl-test-")
        self.addCleanup(folder.cleanup)
        self.folder = os.path.realpath(folder.name)
        self.environment = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD" and not k.startswith("QUARL_")}
        state = tempfile.TemporaryDirectory(prefix="quarl-state-")
        self.addCleanup(state.cleanup)
        self.state = os.path.realpath(state.name)
        self.environment["XDG_STATE_HOME"] = self.state
        self.environment["XDG_CACHE_HOME"] = os.path.realpath(os.path.join(BUILD, "cache"))  # shared: tables cost time

    def quarl(self, *arguments, **options):
        """Runs the tool to its end; the result has returncode, stdout and stderr (text)."""
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "stdin": subprocess.DEVNULL,
                   "text": True, "timeout": DEADLINE, "cwd": self.folder, "env": self.environment, **options}
        return subprocess.run([QUARL, *arguments], **options)

    def start(self, *arguments, **options):
        """Starts the tool with pipes; it is ended with the test."""
        options = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE,
                   "cwd": self.folder, "env": self.environment, **options}
        process = subprocess.Popen([QUARL, *arguments], **options)
        self.addCleanup(self.end, process)
        return process

    def end(self, process):
        process.stdin.close()
        try:
            process.wait(DEADLINE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            raise
        finally:
            process.stdout.close()
            process.stderr.close()

    def read_until(self, stream, text):
        """What the stream gives up to and with the text."""
        got, end = b"", time.monotonic() + DEADLINE
        while text.encode() not in got:
            ready, _, _ = select.select([stream], [], [], max(0, end - time.monotonic()))
            piece = os.read(stream.fileno(), 65536) if ready else b""
            self.assertTrue(piece, f"{text!r} did not come; got {got!r}")
            got += piece
        return got.decode()

    def write(self, name, text):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(text if isinstance(text, bytes) else text.encode())
        return path
