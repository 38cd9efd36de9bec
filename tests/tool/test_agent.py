# SPDX-License-Identifier: Apache-2.0
"""quarl ctl: against an agent in a program under load, and against sockets that behave badly."""

import re
import socket
import time
import unittest
from pathlib import Path

from tool import DEADLINE, ToolTest, library, victim


class RealAgent(ToolTest):
    def test_running_program_is_steered(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                library(target)
                run = self.start("run", "--agent", "--raw", "--", victim(target), "tail", "serve")
                port = re.search(r"port (\d+)", self.read_until(run.stderr, "listens at port")).group(1)
                self.read_until(run.stdout, "serving")
                result = self.quarl("ctl", f"localhost:{port}", "check", "stats", "reset", "QUARL_HEAD_TID=0")
                self.assertEqual(result.returncode, 0, result)
                self.assertEqual([line.split(": ")[1] for line in result.stdout.splitlines()],
                                 ["QUARL_MEM_CHECK=1", "QUARL_MEM_CHECK=0", "QUARL_PRINT_PROFINFO=1",
                                  "QUARL_PRINT_PROFINFO=0", "QUARL_RESET=1", "QUARL_HEAD_TID=0"])
                output = self.read_until(run.stdout, "connection broken")
                self.assertEqual(output.count("slop over occurs at tail"), 1)
                self.assertEqual(output.count("Program memory prof info"), 1)
                run.stdin.close()
                self.assertEqual(run.wait(DEADLINE), 86)  # the overrun


    def test_a_record_log_that_is_switched_on_is_there(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                library(target)
                run = self.start("run", "--agent", "--", victim(target), "serve")
                port = re.search(r"port (\d+)", self.read_until(run.stderr, "listens at port")).group(1)
                self.read_until(run.stdout, "serving")
                result = self.quarl("ctl", f"localhost:{port}", "QUARL_OUTPUT_LOG=1")
                self.assertEqual(result.returncode, 0, result)
                self.assertIn("does not know what was allocated before", result.stderr)
                log, = Path(self.state).rglob("*_quarlAll.log")
                empty, end = log.stat().st_size, time.monotonic() + DEADLINE
                while log.stat().st_size == empty and time.monotonic() < end:  # until the first records are flushed
                    time.sleep(0.01)
                run.stdin.close()
                run.wait(DEADLINE)
                events = self.quarl("report", "events", "--op", "malloc", "--min-size", "100", "--max-size", "100", "--format", "csv", log)
                self.assertIn(",malloc,allocated,100,", events.stdout)
                self.assertNotIn("write log file failed", run.stdout.read().decode() + run.stderr.read().decode())
                log.unlink()


class Effects(ToolTest):
    def test_what_an_item_does_not_do_is_said(self):
        server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(server.close)
        address = f"127.0.0.1:{server.getsockname()[1]}"
        for items, text in ((["QUARL_SIG=SIGUSR2"], "QUARL_SIG=SIGUSR2 has no effect: the item cannot be set again"),
                            (["QUARL_DEMO_THREAD=1"], "QUARL_DEMO_THREAD=1 has no effect"),
                            (["QUARL_TIMER=1"], "acts only when nothing has set it before"),
                            (["QUARL_HEAD_TIME=2"], "starts no timer"),
                            (["QUARL_SNAP_DETAIL=1"], "no effect unless the program was started with QUARL_SNAP_INTERVAL"),
                            (["QUARL_RECORD_LOG_AT_FREE=1"], "accepted for older files"),
                            (["QUARL_PROF=1"], ""), (["QUARL_SLOPOVER_MALLOC=0"], "")):
            run = self.start("ctl", address, *items)
            connection, _ = server.accept()
            with connection:
                self.assertTrue(b"".join(iter(lambda: connection.recv(4096), b"")))
            self.assertEqual(run.wait(DEADLINE), 0)
            told = run.stderr.read().decode()
            self.assertTrue(text in told if text else told == "", (items, told))


class Socket(ToolTest):
    def setUp(self):
        super().setUp()
        self.server = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(self.server.close)
        self.address = f"127.0.0.1:{self.server.getsockname()[1]}"

    def test_packets_are_32_bytes_padded(self):
        run = self.start("ctl", self.address, "QUARL_SIG=SIGUSR2", "QUARL_LOG_FILENAME=123456789012")
        connection, _ = self.server.accept()
        with connection:
            got = b"".join(iter(lambda: connection.recv(4096), b""))
        self.assertEqual(got, b"QUARL_SIG=SIGUSR2".ljust(32, b"\0") + b"QUARL_LOG_FILENAME=123456789012\0")
        self.assertEqual(run.wait(DEADLINE), 0)
        self.assertIn("cannot be set again", run.stderr.read().decode())

    def test_nothing_is_sent_when_one_command_is_refused(self):
        for command, text in (("QUARL_X=1", "no item"), ("QUARL_" + "X" * 26 + "=1", "longer than 31"),
                              ("QUARL_LOG_FILENAME=" + "x" * 16, "longer than 15"),
                              ("QUARL_LOG_FILENAME=1234567890123", "a packet takes 31"), ("QUARL_ALL=on", "write 0 or 1"),
                              ("QUARL_SNAP_INTERVAL=5", "ends a process"), ("chek", "no KEY=VALUE")):
            with self.subTest(command):
                result = self.quarl("ctl", self.address, "check", command)
                self.assertEqual((result.returncode, result.stdout), (1, ""))
                self.assertIn(text, result.stderr)
        self.server.setblocking(False)
        self.assertRaises(BlockingIOError, self.server.accept)

    def test_agent_that_does_not_answer(self):
        result = self.quarl("ctl", "--timeout", "1", self.address, "check")
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("serves one client at a time", result.stderr)

    def test_no_agent(self):
        self.server.close()
        for address, text in ((self.address, "no agent at"), ("127.0.0.1:99999", "a port is a number"),
                              (":9000", "no HOST"), ("host.invalid", "host.invalid:9000:")):
            result = self.quarl("ctl", address, "check")
            self.assertEqual(result.returncode, 1)
            self.assertIn(text, result.stderr)


if __name__ == "__main__":
    unittest.main()
