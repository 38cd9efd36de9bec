# SPDX-License-Identifier: Apache-2.0
"""quarl run: starting, faults, exit status, output, signals, items and logs, with the real library."""

import os
import pty
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import unittest
from pathlib import Path

from tool import DEADLINE, QUARL, VICTIMS, ToolTest, library, victim

TARGETS = ("i686", "armhf", "armel")


class Run(ToolTest):
    def run_victim(self, target, *acts, options=(), **more):
        library(target)
        return self.quarl("run", *options, "--", victim(target), *acts, **more)


def summary_of(result):
    return result.stderr.splitlines()[-1]


class Faults(Run):
    def test_each_fault_is_told_once_and_the_run_ends(self):
        for target in TARGETS:
            for acts, faults, stopped in (([], "no faults", 0), (["double"], "1 fault", 1), (["thread"], "1 fault", 1),
                                          (["child"], "1 fault", 1), (["tail", "check"], "1 fault, reported 3 times", 0),
                                          (["tail"], "1 fault, reported 2 times", 0)):
                with self.subTest(target=target, acts=acts):
                    if not os.path.exists(os.path.join(VICTIMS, f"victim_{target}")):
                        self.skipTest(f"no cross compiler for {target}")
                    result = self.run_victim(target, *acts)
                    self.assertEqual((result.returncode, result.stdout), (86 if acts else 7, ""), result)
                    self.assertTrue(summary_of(result).startswith(f"quarl: {faults}; "), result.stderr)
                    self.assertEqual(result.stderr.count("the thread was stopped there; it is ended now\n"), stopped)
                    self.assertEqual(result.stderr.count("\n  found "), 1 if acts else 0, result.stderr)

    def test_threads_that_are_stopped_at_once(self):
        for target in TARGETS:
            with self.subTest(target):
                library(target)
                result = self.run_victim(target, "threads")
                self.assertEqual(result.returncode, 86, result)
                self.assertTrue(summary_of(result).startswith("quarl: 8 faults; "), result.stderr)
                self.assertEqual(result.stderr.count("the thread was stopped there; it is ended now\n"), 8)

    def test_fault_status_is_chosen(self):
        for status, expected in ((3, 3), (0, 7)):
            result = self.run_victim("i686", "thread", options=["--fault-exitcode", str(status)])
            self.assertEqual(result.returncode, expected)

    def test_a_program_that_prints_a_report_is_not_at_fault(self):
        result = self.run_victim("i686", "print")
        self.assertEqual((result.returncode, result.stdout.count("###### slop over")), (7, 1))
        self.assertRegex(result.stderr, r"^quarl: no faults; .*\n$")

    def test_raw_shows_what_the_library_prints(self):
        result = self.run_victim("i686", "tail", options=["--raw"])
        self.assertEqual((result.returncode, result.stdout.count("###### slop over")), (86, 2))
        self.assertRegex(result.stderr, r"^quarl: 1 fault, reported 2 times; .*\n$")

    def test_fault_of_a_daemon_that_closed_its_output(self):
        library("i686")
        run = self.start("run", "--", victim("i686"), "daemon", "stay")
        self.assertIn("released twice", self.read_until(run.stderr, "it is ended now"))
        run.stdin.close()
        self.assertEqual(run.wait(DEADLINE), 86)

    def test_daemon_that_outlives_the_run_is_told(self):
        """And what it reads and writes stays."""
        library("i686")
        run = self.start("run", "--set", "QUARL_MMAP=1", "--logs", "logs", "--", victim("i686"), "left")
        told = self.read_until(run.stderr, "everything was given back")
        pid = re.search(r"victim_i686\[(\d+)\] runs on; what becomes of it is told by: quarl story (\S+)", told)
        self.assertIsNotNone(pid, told)
        self.assertEqual(run.wait(DEADLINE), 7)
        self.assertIn("quarlcfg.ini", os.listdir(os.path.join(self.folder, "logs")))
        self.assertTrue(os.path.exists(pid[2]))
        run.stdin.close()
        self.read_until(run.stdout, "left behind")

    def test_parked_thread_is_kept_and_released_by_hand(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                library(target)
                run = self.start("run", "--keep-parked", "--", victim(target), "thread")
                told = self.read_until(run.stderr, "quarl release")
                pid, tid = re.search(r"the thread is stopped there; end it with: quarl release (\d+) (\d+)", told).groups()
                self.assertEqual(self.quarl("release", pid, "1").returncode, 1)
                self.assertIn(f"released thread {tid}", self.quarl("release", pid, tid).stdout)
                self.assertEqual(run.wait(DEADLINE), 86)

    def test_process_that_only_its_agent_keeps_is_ended_with_its_log(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                result = self.run_victim(target, "double", options=["--agent", "--logs", f"logs-{target}"])
                self.assertEqual(result.returncode, 86)
                self.assertIn("nothing but the agent is left", result.stderr)
                log = re.search(r"quarl report leaks (\S+)", summary_of(result))[1]
                self.assertEqual(self.quarl("report", log).returncode, 0)


class NotChecked(Run):
    def test_programs_that_are_not_checked_are_named(self):
        library("i686")
        run = self.start("run", "--", victim("i686"), "other", "stay")
        self.read_until(run.stderr, f"quarl: not checked: {os.path.realpath('/bin/sleep')} (64-bit)\n")
        run.stdin.close()
        self.assertEqual(run.wait(DEADLINE), 7)

    @unittest.skipIf(os.getuid() != 0, "only root gives capabilities to a file")
    def test_library_that_was_not_loaded(self):
        library("i686")
        program = shutil.copy(victim("i686"), os.path.join(self.folder, "capable"))
        if subprocess.run(["setcap", "cap_net_raw=ep", program], check=False).returncode != 0:
            self.skipTest("no file capabilities on this file system")
        for folder in (self.folder, self.state):
            os.chmod(folder, 0o777)
        result = self.quarl("run", "--no-frames", "--", "./capable", "tail", user=65534)
        self.assertEqual(result.returncode, 7, result)
        self.assertIn("libquarl.so was not loaded into process", result.stderr)


class Output(Run):
    def test_output_passes_unchanged(self):
        expected = "".join(f"line {i}\n" for i in range(100000))
        with self.subTest("pipe"):
            self.assertEqual(self.run_victim("i686", "lines", "tail").stdout, expected)
        with self.subTest("device that takes nothing"), open("/dev/full", "wb") as full:
            self.assertEqual(self.run_victim("i686", "lines", stdout=full).returncode, 7)

    def test_descriptors_are_the_programs_own(self):
        """The very files: what they are, where they stand, and none besides."""
        library("i686")
        with open(self.write("in", "text"), "rb") as given, open(os.path.join(self.folder, "out"), "wb") as out:
            result = self.run_victim("i686", "descriptors", stdin=given, stdout=out)
            expected = [f"{os.fstat(file).st_dev} {os.fstat(file).st_ino}" for file in (given.fileno(), out.fileno())]
        self.assertEqual(result.returncode, 7)
        with open(os.path.join(self.folder, "out"), encoding="utf-8") as out:
            lines = out.read().splitlines()
        self.assertEqual(lines[:2], expected)
        self.assertEqual(lines[2:], [""])

    def test_reader_that_goes_away_ends_the_program(self):
        library("i686")
        run = self.start("run", "--", victim("i686"), "lines")
        self.read_until(run.stdout, "line 1\n")
        run.stdout.close()
        self.assertEqual(run.wait(DEADLINE), 128 + signal.SIGPIPE)

    def test_terminal_stays_a_terminal(self):
        library("i686")
        main, slave = pty.openpty()
        self.environment |= {"TERM": "xterm"}
        result = self.quarl("run", "--", victim("i686"), "tty", "double", stdin=slave, stdout=slave, stderr=slave)
        os.close(slave)
        text = ""
        try:
            while True:
                text += os.read(main, 65536).decode()
        except OSError:  # all of it was read
            os.close(main)
        self.assertTrue(text.startswith("1 1 1\r\nquarl: victim_i686["), text)
        self.assertIn("released twice\x1b[0m", text)
        self.assertEqual(result.returncode, 86)

    def test_process_left_behind_keeps_its_output(self):
        library("i686")
        run = self.start("run", "--", victim("i686"), "left")
        self.assertEqual(run.wait(DEADLINE), 7)
        run.stdin.close()
        self.read_until(run.stdout, "left behind")

    def test_direct_is_taken_and_does_nothing(self):
        result = self.run_victim("i686", "tail", options=["--direct"])
        self.assertEqual(result.returncode, 86)
        self.assertIn("quarl: --direct does nothing any more", result.stderr)
        self.assertNotIn("--direct", self.quarl("run", "--help").stdout + self.quarl("man").stdout)


class Environment(Run):
    def test_a_file_of_the_users_own_is_followed(self):
        self.write("own.jsonl", '{"v":1,"event":"fault","pid":1,"kind":"double-free"}\n')
        self.environment["QUARL_EVENTS"] = "own.jsonl"
        result = self.run_victim("i686", "tail")
        self.assertTrue(summary_of(result).startswith("quarl: 1 fault, reported 2 times;"), result.stderr)
        with open(os.path.join(self.folder, "own.jsonl"), encoding="utf-8") as events:
            self.assertEqual(events.read().count('"event":"fault"'), 3)

    def test_a_fifo_is_left_to_its_reader(self):
        fifo = os.path.join(self.folder, "fifo")
        os.mkfifo(fifo)
        reader = os.open(fifo, os.O_RDONLY | os.O_NONBLOCK)
        self.addCleanup(os.close, reader)
        self.environment["QUARL_EVENTS"] = fifo
        result = self.run_victim("i686", "double")
        self.assertEqual(result.returncode, 86)
        self.assertIn("QUARL_EVENTS names no file", result.stderr)
        self.assertIn("double free", result.stdout)
        self.assertIn(b'"event":"fault"', os.read(reader, 65536))
        self.assertTrue(summary_of(result).startswith("quarl: 1 thread stopped; what the checker found is not known here"))

    @unittest.skipIf(os.getuid() != 0, "only root may become another user")
    def test_events_that_cannot_be_written(self):
        """The run has heard of nothing: it neither says that there was no fault, nor that nothing was checked."""
        path = self.write("own.jsonl", "")
        os.chmod(path, 0o444)
        for folder in (self.folder, self.state):
            os.chmod(folder, 0o777)
        library("i686")
        self.environment["QUARL_EVENTS"] = path
        result = self.quarl("run", "--no-frames", "--", victim("i686"), "double", user=65534)
        self.assertEqual(result.returncode, 86, result)
        self.assertIn(f"came into {path}: the disk is full, or its user may not write there\n", result.stderr)
        self.assertTrue(summary_of(result).startswith("quarl: 1 thread stopped; what the checker found is not known here"))

    def test_where_messages_go_is_the_users_choice(self):
        self.environment["QUARL_MESSAGES"] = "stderr"
        result = self.run_victim("i686", "tail")
        self.assertEqual((result.stdout, result.stderr.count("###### slop over")), ("", 2))


class Status(Run):
    def test_signal_without_a_story(self):
        run = self.start("run", "--", victim("i686"), "wait")
        self.read_until(run.stdout, "waiting")
        run.send_signal(signal.SIGALRM)
        self.read_until(run.stderr, "quarl: the program was ended by SIGALRM, without a story\n")
        self.assertEqual(run.wait(DEADLINE), 128 + signal.SIGALRM)

    def test_end_without_a_word(self):
        """Why nothing is known of what was kept, and what tells it."""
        past = "quarl: the program left past the checker's end, by _exit or .*quarl dump PID"
        killed = "quarl: the program was ended by SIGKILL, which no program sees come"
        blocked = "quarl: the program was ended by SIGSEGV without a story: the signal was blocked"
        for acts, status, told in ((["leave"], 7, past), (["killed"], 137, killed), (["blocked"], 139, blocked),
                                   (["in-thread", "blocked"], 139, blocked)):
            with self.subTest(acts):
                result = self.run_victim("i686", *acts)
                self.assertEqual(result.returncode, status)
                self.assertRegex(result.stderr, f"^{told}")
                self.assertIn("\nquarl: no faults; what was kept is not known", result.stderr)
        self.assertNotIn("_exit", self.run_victim("i686").stderr)

    def test_overflow_of_a_threads_stack(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                result = self.run_victim(target, "in-thread", "deep")
                self.assertEqual(result.returncode, 139)
                self.assertRegex(result.stderr, r"quarl: victim_\w+\[\d+\]: ended by SIGSEGV: no access to 0x\w+\n"
                                 r"  in         thread \d+\n(      fall +victim.c:\d+\n)+")

    def test_signals(self):
        result = self.run_victim("i686", "abort")
        self.assertEqual(result.returncode, 128 + signal.SIGABRT)
        self.assertRegex(result.stderr, r"quarl: victim_i686\[\d+\]: ended by SIGABRT\n")
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
        foreign = self.write("foreign", Path(i686).read_bytes().replace(b"/lib/ld-linux.so.2", b"/lib/ld-other.so.1"))
        os.chmod(foreign, 0o755)
        for arguments, text in (
                (["--", sys.executable], "64-bit"), (["--", script], "/bin/sh is a 64-bit file"),
                (["--", os.path.join(VICTIMS, "victim_static")], "linked statically"),
                (["--", "./nothing"], "no such file"), (["--", "no-such-program"], "no such program in PATH"),
                (["--", "./plain"], "chmod +x"), (["--", broken], "no valid ELF header"),
                (["--", big_endian], "big-endian"),
                (["--library", QUARL, "--", i686], "64-bit"), (["--library", "none", "--", i686], "no such file"),
                (["--sysroot", "none", "--", i686], "sysroot none: no such folder"),
                (["--sysroot", self.folder, "--", i686], "needs the loader"),
                (["--", foreign], "another C library"),
                (["--config", "none", "--", i686], "cannot read none")):
            with self.subTest(text):
                if arguments[0] in ("--sysroot", "--config") or foreign in arguments:
                    library("i686")
                result = self.quarl("run", *arguments)
                self.assertEqual((result.returncode, result.stdout), (1, ""), result)
                self.assertIn(text, result.stderr)

    def test_signal_that_ends_the_program_has_it_write_its_logs(self):
        for target in ("i686", "armhf"):
            with self.subTest(target):
                library(target)
                folder = os.path.join(self.folder, target)
                run = self.start("run", "--logs", folder, "--", victim(target), "hold")
                self.read_until(run.stdout, "here")
                run.send_signal(signal.SIGTERM)
                told = self.read_until(run.stderr, "more: quarl report leaks")
                self.assertEqual(run.wait(DEADLINE), 128 + signal.SIGTERM)
                self.assertRegex(told, r"quarl: no faults; 1000 bytes in 1 block held when a signal ended it; the C and C\+\+ libraries "
                                       r"keep \d+ bytes in 1 block; more: ")
                [log] = [name for name in os.listdir(folder) if name.endswith("_quarl.log")]
                self.assertIn("1,000 bytes in 1 block", self.quarl("report", "leaks", os.path.join(folder, log)).stdout)

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
        self.assertEqual(len(logs), 3, logs)
        self.assertIn("events.jsonl", logs)
        for name in logs[1:]:
            self.assertRegex(name, r"^victim_i686_\d+_quarlAll\.log$")
        self.assertIn(f"; 2 logs in {self.state}/quarl/{run}; more: quarl report", result.stderr)
        self.assertEqual(os.listdir(self.folder), [])

    def test_folder_is_chosen(self):
        self.run_victim("i686", "child", options=["--logs", "a/b", "--record", "--keep-all"])
        self.assertEqual(len(os.listdir(os.path.join(self.folder, "a/b"))), 3)
        self.environment["QUARL_LOG_DIR"] = "c"
        self.run_victim("i686", options=["--record", "--keep-all"])
        self.assertEqual(len(os.listdir(os.path.join(self.folder, "c"))), 2)
        self.assertEqual(sorted(os.listdir(self.folder)), ["a", "c"])
        self.assertEqual(os.listdir(self.state), [])

    def test_logs_that_say_nothing(self):
        """A log that was begun and never written to goes, unless it is that of a process that a signal has ended."""
        for act, options, told, kept in (("leave", (), "1", 0), ("leave", ("--keep-all",), "1", 1), ("abort", (), "1", 0),
                                         ("abort", (), "0", 1)):
            with self.subTest(act, options=options, told=told):
                self.environment["QUARL_END_SIGNALS"] = told
                folder = os.path.join(self.folder, "logs")
                self.run_victim("i686", act, options=["--logs", folder, *options])
                logs = [name for name in os.listdir(folder) if name != "events.jsonl"] if os.path.isdir(folder) else []
                self.assertEqual(len(logs), kept)
                shutil.rmtree(folder, ignore_errors=True)

    def test_configuration_that_is_a_pipe(self):
        read, write = os.pipe()
        os.write(write, b"QUARL_OUTPUT_LOG=1\n")
        os.close(write)
        self.run_victim("i686", "config", options=["--config", f"/dev/fd/{read}", "--logs", "logs"], pass_fds=[read])
        os.close(read)
        [log] = [name for name in os.listdir(os.path.join(self.folder, "logs")) if name != "events.jsonl"]
        self.assertTrue(log.endswith("_quarlAll.log"), log)


if __name__ == "__main__":
    unittest.main()
