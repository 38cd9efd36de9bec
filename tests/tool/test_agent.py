"""quarl ctl: against an agent in a program under load, and against sockets that behave badly."""

import re
import socket
import unittest

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
