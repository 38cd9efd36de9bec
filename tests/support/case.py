# SPDX-License-Identifier: Apache-2.0
"""The base of the library's tests: a scratch directory, a configuration file, victims, and exact output."""

import contextlib
import os
import shutil
import tempfile
import unittest
from pathlib import Path

import target
from process import Process
from driver import Driver


class Case(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.target = target.current()
        self.directory = Path(tempfile.mkdtemp(prefix="quarl-"))
        self.addCleanup(shutil.rmtree, self.directory, ignore_errors=True)

    def configure(self, text):
        """Writes the configuration file that is found without help: items separated by blanks or lines."""
        lines = text if "\n" in text else "".join(item + "\n" for item in text.split())
        (self.directory / "quarlcfg.ini").write_text(lines)

    def _started(self, process):
        self.addCleanup(process.discard)
        return process

    def run_victim(self, name, *arguments, config=None, **options):
        if config is not None:
            self.configure(config)
        options.setdefault("directory", self.directory)
        return self._started(Process(self.target, self.target.victim(name), arguments, **options))

    def driver(self, config=None, **options):
        if config is not None:
            self.configure(config)
        options.setdefault("directory", self.directory)
        return self._started(Driver(self.target, **options))

    def assert_ends(self, process, out="", err="", status=0):
        """The process ends with this status and has printed exactly this."""
        ended = process.finish()
        self.assertEqual((process.out, process.err, ended), (out, err, status))

    def log_path(self, process, kind, prefix="", program="driver"):
        name = f"{prefix}{self.target.process_name(program)}_{process.pid}_{kind}.log"
        return self.directory / name

    def files(self):
        return sorted(path.name for path in self.directory.iterdir() if path.name != "quarlcfg.ini")


@contextlib.contextmanager
def unprivileged_directory(path):
    """A directory in which even root cannot create files."""
    os.chmod(path, 0o555)
    try:
        yield
    finally:
        os.chmod(path, 0o755)


main = unittest.main
