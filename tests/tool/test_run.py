"""quarl run: starting, faults, exit status, output, signals, items and logs, with the real library."""

import os
import pty
import re
import shutil
import signal
import socket
import struct
import sys
import unittest

from tool import DEADLINE, QUARL, VICTIMS, ToolTest, library, victim

TARGETS = ("i686", "armhf", "armel")


class Run(ToolTest):
    def run_victim(self, target, *acts, options=(), **more):
        library(target)
        return self.quarl("run", *options, "--", victim(target), *acts, **more)


class Faults(Run):
    def test_each_fault_is_told_and_the_run_ends(self):
        for target in TARGETS:
            for acts, reports, parked in (([], 0, 0), (["double"], 1, 1), (["thread"], 1, 1), (["child"], 1, 1),
                                          (["tail", "check"], 3, 0), (["tail"], 2, 0)):
                with self.subTest(target=target, acts=acts):
                    if not os.path.exists(os.path.join(VICTIMS, f"victim_{target}")):
                        self.skipTest(f"no cross compiler for {target}")
                    result = self.run_victim(target, *acts)
                    self.assertEqual(result.returncode, 86 if reports else 7, result)
                    told = f"fault reports: {reports}, parked threads: {parked}"
                    self.assertEqual(told in result.stderr, bool(reports), result.stderr)
                    self.assertEqual(result.stderr.count("was parked after a fault"), parked)

    def test_fault_status_is_chosen(self):
        for status, expected in ((3, 3), (0, 7)):
            result = self.run_victim("i686", "thread", options=["--fault-exitcode", str(status)])
            self.assertEqual(result.returncode, expected)

    def test_parked_thread_is_kept_and_released_by_hand(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                library(target)
                run = self.start("run", "--keep-parked", "--", victim(target), "thread")
                told = self.read_until(run.stderr, "quarl release")
                pid, tid = re.search(r"thread (\d+) .* of process (\d+)", told).group(2, 1)
                self.assertEqual(self.quarl("release", pid, "1").returncode, 1)
                self.assertIn(f"released thread {tid}", self.quarl("release", pid, tid).stdout)
                self.assertEqual(run.wait(DEADLINE), 86)

    def test_process_that_only_its_agent_keeps_is_ended(self):
        result = self.run_victim("i686", "double", options=["--agent"])
        self.assertEqual(result.returncode, 86)
        self.assertIn("nothing but the agent is left", result.stderr)


class Output(Run):
    def test_output_passes_unchanged(self):
        expected = "".join(f"line {i}\n" for i in range(100000))
        with self.subTest("pipe"):
            self.assertEqual(self.run_victim("i686", "lines").stdout, expected)
        with self.subTest("file, with what stood there before"):
            path = self.write("out", "before\n")
            with open(path, "a", encoding="utf-8") as out:
                result = self.run_victim("i686", "lines", "tail", stdout=out)
            with open(path, encoding="utf-8") as out:
                self.assertTrue(out.read().startswith("before\n" + expected + "######"))
            self.assertEqual(result.returncode, 86)
        with self.subTest("device that takes nothing"), open("/dev/full", "wb") as full:
            self.assertEqual(self.run_victim("i686", "lines", stdout=full).returncode, 7)
        with self.subTest("direct: no fault is read"):
            self.assertEqual(self.run_victim("i686", "tail", options=["--direct"]).returncode, 7)

    def test_reader_that_goes_away_ends_the_program(self):
        library("i686")
        run = self.start("run", "--", victim("i686"), "lines")
        self.read_until(run.stdout, "line 1\n")
        run.stdout.close()
        self.assertEqual(run.wait(DEADLINE), 128 + signal.SIGPIPE)

    def test_terminal_stays_a_terminal(self):
        library("i686")
        main, slave = pty.openpty()
        result = self.quarl("run", "--", victim("i686"), "tty", "double", stdin=slave, stdout=slave, stderr=slave)
        os.close(slave)
        text = ""
        try:
            while True:
                text += os.read(main, 65536).decode()
        except OSError:  # all of it was read
            os.close(main)
        self.assertTrue(text.startswith("1 1 1\r\ndouble free"), text)
        self.assertEqual(result.returncode, 86)

    def test_process_left_behind_keeps_its_output(self):
        library("i686")
        run = self.start("run", "--", victim("i686"), "left")
        self.assertEqual(run.wait(DEADLINE), 7)
        run.stdin.close()
        self.read_until(run.stdout, "left behind")


class Status(Run):
    def test_signals(self):
        self.assertEqual(self.run_victim("i686", "abort").returncode, 128 + signal.SIGABRT)
        for target in ("i686", "armhf"):
            with self.subTest(target):
                library(target)
                run = self.start("run", "--", victim(target), "wait")
                self.read_until(run.stdout, "waiting")
                run.send_signal(signal.SIGUSR2)
                self.assertIn("signal 12", self.read_until(run.stdout, "signal 12"))
                self.assertEqual(run.wait(DEADLINE), 9)

    def test_what_cannot_be_checked_is_refused(self):
        i686 = victim("i686")
        shutil.copy(i686, os.path.join(self.folder, "plain"))
        os.chmod(os.path.join(self.folder, "plain"), 0o644)
        script = self.write("script", "#!/bin/sh\n")
        os.chmod(script, 0o755)
        broken = self.write("broken", b"\x7fELF\x01\x01\x01" + b"\0" * 20)
        os.chmod(broken, 0o755)
        big_endian = self.write("big_endian", b"\x7fELF\x01\x02\x01" + b"\0" * 9 +
                                struct.pack(">HHIIIIIHHHHHH", 2, 40, 1, 0, 52, 0, 0, 52, 32, 0, 40, 0, 0))
        os.chmod(big_endian, 0o755)
        for arguments, text in (
                (["--", sys.executable], "64-bit"), (["--", script], "/bin/sh is a 64-bit program"),
                (["--", os.path.join(VICTIMS, "victim_static")], "linked statically"),
                (["--", "./nothing"], "no such file"), (["--", "no-such-program"], "no such program in PATH"),
                (["--", "./plain"], "chmod +x"), (["--", broken], "no valid ELF header"),
                (["--", big_endian], "big-endian"),
                (["--library", QUARL, "--", i686], "64-bit"), (["--library", "none", "--", i686], "no such file"),
                (["--sysroot", "none", "--", i686], "sysroot none: no such folder"),
                (["--sysroot", self.folder, "--", i686], "needs the loader"),
                (["--config", "none", "--", i686], "cannot read none")):
            with self.subTest(text):
                if arguments[0] in ("--sysroot", "--config"):
                    library("i686")
                result = self.quarl("run", *arguments)
                self.assertEqual((result.returncode, result.stdout), (1, ""), result)
                self.assertIn(text, result.stderr)

    def test_script_runs_by_its_interpreter(self):
        library("i686")
        script = self.write("script", f"#!{victim('i686')} double\n")
        os.chmod(script, 0o755)
        result = self.quarl("run", "--", "./script")
        self.assertEqual(result.returncode, 86)


class Contract(Run):
    def test_glibc_contract_unless_told_otherwise(self):
        """Seen in what a request of 0 bytes gets, so that the variable is known to reach the library, too."""
        for target in TARGETS:
            for told, answer in ((None, "libc: a block"), ("plain", "plain: null"), ("libc", "libc: a block"),
                                 ("", ": null")):
                with self.subTest(target=target, told=told):
                    self.environment.pop("QUARL_CONTRACT", None)
                    if told is not None:
                        self.environment["QUARL_CONTRACT"] = told
                    result = self.run_victim(target, "contract")
                    self.assertEqual((result.returncode, result.stdout), (7, answer + "\n"), result)


class AgentAddress(Run):
    def reachable(self, target, address):
        """Whether an address of this machine other than 127.0.0.1 reaches the agent, which listens on `address`."""
        self.environment.pop("QUARL_AGENT_ADDRESS", None)
        if address:
            self.environment["QUARL_AGENT_ADDRESS"] = address
        run = self.start("run", "--agent", "--", victim(target), "serve")
        port = int(re.search(r"port (\d+)", self.read_until(run.stderr, "listens at port"))[1])
        try:
            socket.create_connection(("127.1.2.3", port), DEADLINE).close()
            return True
        except ConnectionRefusedError:
            socket.create_connection(("127.0.0.1", port), DEADLINE).close()
            return False
        finally:
            run.stdin.close()
            run.wait(DEADLINE)

    def test_agent_of_a_run_is_this_machines_own_unless_told_otherwise(self):
        for target in ("i686", "armhf"):
            library(target)
            self.assertEqual([self.reachable(target, address) for address in ("", "0.0.0.0")], [False, True])


class Items(Run):
    def config_of(self, *options):
        """The configuration file that the program was given, without its comments."""
        result = self.run_victim("i686", "config", options=options)
        self.assertEqual(result.returncode, 7, result)
        return [line for line in result.stdout.splitlines() if line.startswith("QUARL_")]

    def test_items_are_put_in_order(self):
        self.write("quarlcfg.ini", "QUARL_SIG=SIGUSR2\n# a comment\nQUARL_HEAD_TIME=1\nQUARL_MAPS_SIZE=64\n")
        lines = self.config_of("--set", "QUARL_TIME_INTERVAL=5", "--set", "QUARL_HEAD_TIME=2", "--set", "QUARL_SIG=40")
        self.assertEqual(lines, ["QUARL_ALL=1", "QUARL_MEM_HEAD=1", "QUARL_PROF=1", "QUARL_HEAD_TIME=2",
                                 "QUARL_MAPS_SIZE=64", "QUARL_TIME_INTERVAL=5", "QUARL_SIG=40"])

    def test_short_names(self):
        lines = self.config_of("--record", "--snapshots", "7", "--set", "QUARL_SNAP_DETAIL=0")
        self.assertEqual(self.quarl("config", "check", self.write("c", "\n".join(lines) + "\n")).returncode, 0)
        for item in ("QUARL_OUTPUT_LOG=1", "QUARL_SNAP_INTERVAL=7", "QUARL_SNAP_DETAIL=0"):
            self.assertIn(item, lines)

    def test_items_without_effect_are_refused(self):
        for item, text in (("QUARL_PROFF=1", "did you mean QUARL_PROF?"), ("QUARL_PROF=yes", "write 0 or 1"),
                           ("QUARL_TIME_INTERVAL=5", "put QUARL_HEAD_TIME=2"), ("QUARL_PROF", "no KEY=VALUE"),
                           ("QUARL_LOG_FILENAME=0123456789abcdef", "longer than 15"),
                           ("QUARL_LOG_FILENAME=a b", "no blank"), ("QUARL_TIMER=1", "QUARL_SLOPOVER_TIMER is off")):
            result = self.run_victim("i686", options=["--set", item])
            self.assertEqual(result.returncode, 1, item)
            self.assertIn(text, result.stderr)

    def test_faults_of_the_file_are_only_told(self):
        path = self.write("own.ini", "QUARL_NONE=1\nQUARL_PROF=0\n")
        result = self.run_victim("i686", options=["--config", path, "--set", "QUARL_MMAP=0"])
        self.assertEqual(result.returncode, 7)
        self.assertIn(f"quarl: {path}:1: ignored: no item", result.stderr)

    def runs(self):
        """{folder of a run: its files}"""
        folder = os.path.join(self.state, "quarl")
        return {run: sorted(os.listdir(os.path.join(folder, run))) for run in os.listdir(folder)}

    def test_logs_lie_in_a_folder_of_the_run(self):
        result = self.run_victim("i686", "child", options=["--record", "--keep-all"])
        [(run, logs)] = self.runs().items()
        self.assertRegex(run, r"^victim_i686-\d{8}-\d{6}-\d+$")
        self.assertEqual(len(logs), 2, logs)
        for name in logs:
            self.assertRegex(name, r"^victim_i686_\d+_quarlAll\.log$")
        self.assertIn(f"2 logs: {self.state}/quarl/{run}\n", result.stderr)
        self.assertEqual(os.listdir(self.folder), [])

    def test_folder_is_chosen(self):
        self.run_victim("i686", "child", options=["--logs", "a/b", "--record", "--keep-all"])
        self.assertEqual(len(os.listdir(os.path.join(self.folder, "a/b"))), 2)
        self.environment["QUARL_LOG_DIR"] = "c"
        self.run_victim("i686", options=["--record", "--keep-all"])
        self.assertEqual(len(os.listdir(os.path.join(self.folder, "c"))), 1)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a", "c"])
        self.assertEqual(os.listdir(self.state), [])

    def test_logs_that_say_nothing(self):
        """A log that was begun and never written to goes, unless it is that of a process that a signal has ended."""
        for act, options, kept in (("leave", (), 0), ("leave", ("--keep-all",), 1), ("abort", (), 1)):
            with self.subTest(act, options=options):
                folder = os.path.join(self.folder, "logs")
                self.run_victim("i686", act, options=["--logs", folder, *options])
                self.assertEqual(len(os.listdir(folder)) if os.path.isdir(folder) else 0, kept)
                shutil.rmtree(folder, ignore_errors=True)

    def test_configuration_that_is_a_pipe(self):
        read, write = os.pipe()
        os.write(write, b"QUARL_OUTPUT_LOG=1\n")
        os.close(write)
        self.run_victim("i686", "config", options=["--config", f"/dev/fd/{read}", "--logs", "logs"], pass_fds=[read])
        os.close(read)
        [log] = os.listdir(os.path.join(self.folder, "logs"))
        self.assertTrue(log.endswith("_quarlAll.log"), log)


if __name__ == "__main__":
    unittest.main()
