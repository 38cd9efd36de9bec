# SPDX-License-Identifier: Apache-2.0
"""quarl dump, reload and release on a running process."""

import os
import subprocess
import unittest

from tool import ToolTest, library, victim


class Running(ToolTest):
    def serve(self, target, *options):
        """Starts a program under the checker; returns the run and the program's process id."""
        library(target)
        run = self.start("run", *options, "--", victim(target), "serve")
        self.read_until(run.stdout, "serving")
        with open(f"/proc/{run.pid}/task/{run.pid}/children", encoding="ascii") as children:
            return run, children.read().split()[0]

    def test_dump_writes_the_logs(self):
        for target, options in (("i686", []), ("i686", ["--set", "QUARL_SIG=40"]), ("armhf", []),
                                ("armhf", ["--set", "QUARL_SIG=SIGUSR2", "--record"])):
            with self.subTest(target=target, options=options):
                _, pid = self.serve(target, *options)
                result = self.quarl("dump", pid)
                self.assertEqual(result.returncode, 0, result)
                self.assertRegex(result.stdout, rf"^{self.state}/\S+_{pid}_quarl(All)?\.log\n$")
                expected = options[1].split("=")[1].replace("40", "SIG40") if options else "SIGUSR1"
                self.assertIn(f"sent {expected} ", result.stderr)

    def test_logs_of_a_process_that_went_elsewhere(self):
        library("i686")
        self.environment |= {"PWD": self.folder, "LD_PRELOAD": library("i686")}
        process = subprocess.Popen([victim("i686"), "away", "stay"], cwd=self.folder, env=self.environment,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(self.end, process)
        self.read_until(process.stdout, "here")
        del self.environment["LD_PRELOAD"]
        result = self.quarl("dump", str(process.pid))
        self.assertEqual(result.stdout, f"{self.folder}/victim_i686_{process.pid}_quarl.log\n")

    def stay(self, *arguments, **environment):
        """A checked program, started by hand in the test's folder by somebody who says that it is elsewhere."""
        variables = {**self.environment, "PWD": "/", "LD_PRELOAD": library("i686"), **environment}
        process = subprocess.Popen([victim("i686"), *arguments, "stay"], cwd=self.folder, env=variables, stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(self.end, process)
        self.read_until(process.stdout, "here")
        return str(process.pid)

    def test_a_log_that_lies_elsewhere_is_found_while_it_is_open(self):
        pid = self.stay("away")
        result = self.quarl("dump", pid)
        self.assertEqual((result.returncode, result.stdout), (0, f"{self.folder}/victim_i686_{pid}_quarl.log\n"))
        result = self.quarl("dump", pid)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn(f"no log of process {pid} was written within 5 s in /; it writes where it was", result.stderr)

    def test_what_is_not_written_is_told(self):
        self.write("none.ini", "QUARL_MEM_HEAD=0\n")
        result = self.quarl("dump", self.stay(QUARL_CFG_FILE="none.ini"))
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("none without QUARL_MEM_HEAD or QUARL_OUTPUT_LOG", result.stderr)
        result = self.quarl("dump", self.stay(QUARL_ONLY="other"))
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("QUARL_ONLY=other may leave the program out", result.stderr)

    def test_reload_tells_what_cannot_be_set_again(self):
        path = self.write("quarlcfg.ini", "QUARL_PROF=1\n")
        pid = self.stay()
        self.write("quarlcfg.ini", "QUARL_PROF=1\nQUARL_TRACE_BUFSIZE=56000\n")
        result = self.quarl("reload", pid)
        self.assertEqual((result.returncode, result.stdout), (0, path + "\n"))
        self.assertIn(":2: QUARL_TRACE_BUFSIZE cannot be set again: the process keeps what it was first set to", result.stderr)
        self.assertIn("it reads the file at its next allocation", result.stderr)

    def test_reload_puts_the_file_in_force(self):
        path = self.write("own.ini", "QUARL_PROF=1\n")
        run, pid = self.serve("i686", "--raw", "--config", path)
        self.write("own.ini", "QUARL_BAD=1\nQUARL_PRINT_PROFINFO=1\n")
        result = self.quarl("reload", pid)
        self.assertEqual((result.returncode, result.stdout), (0, path + "\n"))
        self.assertIn("own.ini:1: ignored: no item", result.stderr)
        self.read_until(run.stderr, "Item QUARL_BAD is not support")
        self.assertEqual(self.quarl("dump", pid).returncode, 0)
        self.read_until(run.stdout, "Program memory prof info")

    def test_strange_processes_are_refused(self):
        sleeper = subprocess.Popen(["sleep", "1000"])
        self.addCleanup(sleeper.wait)
        self.addCleanup(sleeper.kill)
        for verb, text in (("dump", "does not run under the checker"), ("reload", "does not run under the checker"),
                           ("release", "no thread of process")):
            result = self.quarl(verb, str(sleeper.pid))
            self.assertEqual((result.returncode, result.stdout), (1, ""))
            self.assertIn(text, result.stderr)
            self.assertIn("there is no process", self.quarl(verb, "99999999").stderr)
        self.assertIsNone(sleeper.poll())

    def test_signal_that_is_not_handled_is_not_sent(self):
        path = self.write("quarlcfg.ini", "QUARL_SIG=SIGUSR2\n")
        _, pid = self.serve("i686")
        self.write("quarlcfg.ini", "QUARL_SIG=40\n")
        result = self.quarl("dump", pid)
        self.assertEqual(result.returncode, 1)
        self.assertIn("does not handle SIG40", result.stderr)
        os.unlink(path)


if __name__ == "__main__":
    unittest.main()
