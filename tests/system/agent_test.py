# SPDX-License-Identifier: Apache-2.0
"""The agent, from a plain socket: its messages, packets of every shape, clients of every kind, and its three actions."""

import contextlib
import ctypes
import fcntl
import os
import re
import signal
import socket
import struct
import time
import unittest

import case
from ending import Ending
from header import read_header
from promise import promise
from report_text import double_free, exit_line, take_reports
from tables import statistics

AGENT = "QUARL_DEMO_THREAD=1 QUARL_SLOPOVER_EXIT=0 "
CONNECTED = "Remote connected from host 127.0.0.1\n"
BROKEN = "connection broken, restarts listening...\n"


NEW_USER, NEW_NETWORK = 0x10000000, 0x40000000  # of unshare
SET_FLAGS, UP = 0x8914, 1


def setUpModule():
    """A network of our own, in which no other test and no service has port 9000."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(NEW_NETWORK if os.geteuid() == 0 else NEW_USER | NEW_NETWORK) != 0:
        raise unittest.SkipTest(f"no network namespace: {os.strerror(ctypes.get_errno())}")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, SET_FLAGS, struct.pack("16sH14x", b"lo", UP))


def packet(text):
    return text.encode().ljust(32, b"\0")


class Agent(case.Case):
    def start(self, config=AGENT, expect_port=None):
        driver = self.driver(config)
        port = int(driver.await_match(r"^Waiting for connect at port \[ (\d+) \]\n")[1])
        self.waiting = driver.out
        return driver, port

    @contextlib.contextmanager
    def client(self, driver, port):
        with socket.create_connection(("127.0.0.1", port), 30) as client:
            yield client

    def ended(self, driver, text):
        driver.await_that(lambda: driver.out.endswith(BROKEN + self.waiting), "the next round")
        self.assertEqual(driver.out, text)

    def round(self, inside=""):
        return CONNECTED + inside + BROKEN + self.waiting

    @promise("A taken port 9000 makes it choose another one, which it prints.")
    def test_port_9000_or_a_free_one_that_stays(self):
        with socket.socket() as taken:
            taken.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            taken.bind(("0.0.0.0", 9000))
            taken.listen()
            driver, port = self.start()
            self.assertNotEqual(port, 9000)
            with self.client(driver, port):
                pass
            self.ended(driver, self.waiting + self.round())
            self.assertNotIn(driver.read("srv_desc"), (0, 0xFFFFFFFF))
        self.assert_ends(driver, driver.out)
        driver, port = self.start()
        self.assertEqual(port, 9000)
        self.assert_ends(driver, self.waiting)

    def test_packets_of_every_shape(self):
        """Each case: the pieces that are sent, what is said about them, and the header items then in force."""
        unknown = "Item {} is not support\n".format
        off = packet("QUARL_HEAD_TID=0")
        cases = [([off], "", "SICG"),
                 ([packet(" QUARL_HEAD_TID\t= 0 # text")], "", "SICG"),
                 ([off[:10], off[10:]], "", "SICG"),
                 ([off + packet("QUARL_HEAD_TIME=0")[:8], packet("QUARL_HEAD_TIME=0")[8:]], "", "ICG"),
                 ([b"QUARL_HEAD_TID=0"], "", "SICG"),  # and hangs up
                 ([b"QUARL_HEAD_STACKDEPTH=" + b"0" * 10], "", "TSG"),  # no NUL
                 ([b"Q" * 32], unknown("Q" * 32), "TSICG"),
                 ([packet("QUARL_NONE=1")], unknown("QUARL_NONE"), "TSICG"),
                 ([packet("QUARL_HEAD_TID")], "Err item QUARL_HEAD_TID\n", "TSICG"),
                 ([packet("")], "Err item \n", "TSICG"),
                 ([packet("QUARL_SLOPOVER=0")], "", "TSICG"),  # was set once
                 ([packet("QUARL_HEAD_TID=0"), packet("QUARL_HEAD_TID=1")], "", "TSICG"),
                 ([packet("QUARL_HEAD_TID=1") * 1000 + off], "", "SICG")]
        for pieces, err, parts in cases:
            with self.subTest(pieces[0][:40]):
                driver, port = self.start()
                with self.client(driver, port) as client:
                    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                    for piece in pieces:
                        client.sendall(piece)
                self.ended(driver, self.waiting + self.round())
                self.assertEqual(read_header(driver, driver.malloc(10)).items(), parts)
                self.assert_ends(driver, driver.out, err)

    def test_actions_in_their_order(self):
        driver, port = self.start(AGENT + "QUARL_PRINT_PROFINFO=0")
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        with self.client(driver, port) as client:
            def after(text, count):
                before = len(driver.out)
                client.sendall(packet(text))
                client.sendall(packet("QUARL_END"))  # an unknown key acts on nothing and tells that the first is done
                driver.await_that(lambda: driver.err.count("QUARL_END") == count, "end of a packet")
                driver.read_some(0)
                return take_reports(driver.out[before:] if count > 1 else driver.out[before:].replace(CONNECTED, ""))
            table = statistics(malloc=(1, 0, 10), size=10, peak=10)
            reports, rest = after("QUARL_MEM_CHECK=1", 1)
            self.assertEqual(([report.address for report in reports], rest), ([block], ""))
            reports, rest = after("QUARL_PRINT_PROFINFO=1", 2)
            self.assertEqual((len(reports), rest), (1, table))
            reports, rest = after("QUARL_RESET=1", 3)
            self.assertEqual((len(reports), rest), (1, table))
            reports, rest = after("QUARL_MEM_CHECK=0", 4)
            self.assertEqual((len(reports), rest), (0, statistics()))
            self.assertEqual(after("QUARL_ALL=0", 5), ([], ""))
            self.assertNotEqual(driver.word(driver.malloc(10) - 4) & 3, 3)
            self.assertEqual(after("QUARL_ALL=1", 6), ([], statistics()))
            again = driver.malloc(10)  # the reset was for once
            for count in (7, 8):
                self.assertEqual(after("QUARL_ALL=1", count), ([], statistics(malloc=(1, 0, 10), size=10, peak=10)))
            self.assertNotEqual(again, 0)
        driver.kill()

    def test_every_item_that_is_taken_acts(self):
        """The statistics are printed behind each packet whose item is known, whatever it sets, and behind no other."""
        texts = ["QUARL_THREAD=1", "QUARL_MMAP=1", "QUARL_RANDOM_FAIL=0", "QUARL_HEAD_TIME=1", "QUARL_SNAP_DETAIL=0",
                 "QUARL_HEAD_STACKDEPTH=8", "QUARL_MAPS_SIZE=32", "QUARL_TRACE_BUFSIZE=2800", "QUARL_TIMER_SIG=45",
                 "QUARL_LOG_FILENAME=1", "QUARL_SLOPOVER_API=1", "QUARL_PROF=1", "QUARL_SNAP_INTERVAL=0"]
        for text in texts:
            with self.subTest(text):
                driver, port = self.start(AGENT + "QUARL_PRINT_PROFINFO=1 QUARL_ALL=1 QUARL_PROF=1")
                with self.client(driver, port) as client:
                    client.sendall(packet("QUARL_NONE=1") + packet(text))
                self.ended(driver, self.waiting + self.round(statistics()))
                driver.kill()

    def test_clients_that_misbehave(self):
        driver, port = self.start()
        expected = self.waiting
        for linger in (False, True):  # one closes, one resets
            client = socket.create_connection(("127.0.0.1", port), 30)
            driver.await_that(lambda: driver.out.endswith(CONNECTED), "connection")
            if linger:
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            client.close()
            driver.await_that(lambda: driver.out.endswith(self.waiting) and driver.out.count(CONNECTED) == 1 + linger, "end")
        self.assertIn(BROKEN, driver.out)
        with self.client(driver, port) as stalled:
            driver.await_that(lambda: driver.out.endswith(CONNECTED), "connection")
            stalled.sendall(b"QUARL")
            with self.client(driver, port) as second:  # waits its turn, and loses it when the first goes
                self.assertFalse(self.spins(driver))
                driver.free(driver.malloc(10))
                stalled.close()
                driver.await_that(lambda: driver.out.endswith(self.waiting), "the next round")
                with contextlib.suppress(ConnectionError):
                    self.assertEqual(second.recv(1), b"")
        self.assertEqual(driver.err, "Err item QUARL\n")
        self.assert_ends(driver, driver.out, driver.err)

    def spins(self, driver, seconds=0.5):
        """Whether the process uses the processor while it has nothing to do."""
        def ticks():
            with open(f"/proc/{driver.pid}/stat") as file:
                return sum(map(int, file.read().rsplit(")")[1].split()[11:13]))
        before, end = ticks(), time.monotonic() + seconds
        while time.monotonic() < end:
            driver.read_some(0.05)
        return ticks() - before > seconds * 50

    def test_sockets_of_the_program_in_their_place_are_left_alone(self):
        """What waits in them is neither read nor obeyed, and they stay open."""
        ends = {"srv_socket_desc": "get packet error Bad file descriptor\n",
                "srv_desc": "Access failed, Bad file descriptor\nqr_demo_thread: accept connect failed\n"}
        for symbol, message in ends.items():
            with self.subTest(symbol):
                driver, port = self.start()
                said = self.waiting
                with contextlib.ExitStack() as clients:
                    if symbol == "srv_socket_desc":
                        clients.enter_context(self.client(driver, port))
                        driver.await_that(lambda: driver.out.endswith(CONNECTED), "connection")
                        said += CONNECTED
                    taken = driver.await_that(lambda: (now := driver.read(symbol)) != 0xFFFFFFFF and now, "its descriptor")
                    driver.dup2(driver.socket("QUARL_HEAD_TID=0"), taken)
                    driver.await_that(lambda: driver.out == said + message, "the message")
                    driver.await_that(lambda: self.threads(driver) == 1 + self.target.emulated, "the end of the agent")
                    self.assertEqual(driver.receive(taken, 32), 32)
                self.assertEqual(read_header(driver, driver.malloc(10)).items(), "TSICG")
                self.assert_ends(driver, said + message)

    def sockets(self, pid):
        names = [f"/proc/{pid}/fd/{name}" for name in os.listdir(f"/proc/{pid}/fd")]
        return sum(os.readlink(name).startswith("socket:") for name in names)

    def threads(self, driver):
        with open(f"/proc/{driver.pid}/status") as file:
            return int(re.search(r"Threads:\t(\d+)", file.read())[1])

    @promise("The agent sets `SIGPIPE` to be ignored in the whole process at its first connection.",
             "Whoever can connect to the port of `QUARL_DEMO_THREAD`, at any local address, changes the checker's "
             "configuration in the process.")
    def test_connection_by_any_address_changes_the_configuration_and_ignores_sigpipe(self):
        driver, port = self.start()
        self.assertEqual(driver.do("fork raise 13"), 13)
        with socket.create_connection(("127.1.2.3", port), 30) as client:
            client.sendall(packet("QUARL_HEAD_TID=0"))
        driver.await_that(lambda: driver.out.endswith(BROKEN + self.waiting), "the next round")
        self.assertEqual(read_header(driver, driver.malloc(10)).items(), "SICG")
        self.assertEqual(driver.do("raise 13"), 0)
        self.assert_ends(driver, driver.out)

    @promise("The agent does not keep a process alive: when it is the only thread left, it ends the process with "
             "status 0.")
    def test_half_a_packet_keeps_no_finished_process_alive(self):
        if self.target.emulated:
            self.skipTest("the emulator has a thread of its own")
        driver, port = self.start()
        with self.client(driver, port) as client:
            driver.await_that(lambda: driver.out.endswith(CONNECTED), "connection")
            self.assertGreaterEqual(min(driver.read("srv_desc"), driver.read("srv_socket_desc")), 100)
            client.sendall(b"QUARL_HEAD")
            driver.send("end_thread")
            self.assertEqual(driver.finish(end_input=False), 0)

    @promise("An end that an item asks for is an exit of the program: its exit handlers run without the checker's lock.")
    def test_exit_that_a_packet_asks_for_is_as_the_programs_own(self):
        driver, port = self.start()
        ending = Ending(self, driver)
        with self.client(driver, port) as client:
            client.sendall(packet("QUARL_SNAP_INTERVAL=3"))
            ending.check(self.waiting + CONNECTED +
                         "Get time function is invalid, can not get snapshot info of memory automatically!\n")

    @promise("The agent does not keep a process alive: when it is the only thread left, it ends the process with "
             "status 0.")
    def test_exit_of_a_process_of_which_only_the_agent_is_left(self):
        if self.target.emulated:
            self.skipTest("the emulator has a thread of its own")
        driver, _ = self.start()
        ending = Ending(self, driver, main_ended=True)
        driver.send("end_thread")
        ending.check(self.waiting)

    @promise("Whatever is printed, but for fault reports, is written behind the lock: an output that nobody reads stops the thread that "
             "prints, and no other.")
    def test_statistics_for_nobody(self):
        driver, port = self.start(AGENT + "QUARL_PRINT_PROFINFO=0")
        with self.client(driver, port) as client:
            driver.await_that(lambda: driver.out.endswith(CONNECTED), "connection")
            driver.fill_output()
            client.sendall(packet("QUARL_PRINT_PROFINFO=1"))
            driver.await_that(lambda: driver.tasks_that_wait("pipe_w"), "a full pipe")
            driver.free(driver.malloc(10))
            self.assertEqual(driver.do("fork leave 4"), 4 << 8)
            driver.drain()
            driver.await_that(lambda: driver.out.endswith(statistics()), "the table")
        driver.kill()

    def test_port_that_another_process_listens_on_first(self):
        """Both have bound it; the one that loses sees that when it listens, and takes another port."""
        driver = self.run_victim("late_listener", config=AGENT)
        port = int(driver.await_match(r"^Waiting for connect at port \[ (\d+) \]\n")[1])
        self.assertEqual(driver.said("taken"), [9000])
        self.assertNotEqual(port, 9000)
        with self.client(driver, port):
            driver.await_that(lambda: driver.out.endswith(CONNECTED), "connection")
        driver.await_that(lambda: driver.out.count("Waiting for connect") == 2, "the next round")
        self.assert_ends(driver, driver.out)

    @promise("`QUARL_AGENT_ADDRESS` binds it to one address.")
    def test_address_that_it_listens_on(self):
        for text in ("127.0.0.1", "nonsense"):
            driver = self.driver(AGENT, environment={"QUARL_AGENT_ADDRESS": text})
            port = int(driver.await_match(r"^Waiting for connect at port \[ (\d+) \]\n")[1])
            driver.do("setenv QUARL_AGENT_ADDRESS 0.0.0.0")  # too late
            for rounds in (1, 2):
                self.assertRaises(ConnectionRefusedError, socket.create_connection, ("127.1.2.3", port), 30)
                with self.client(driver, port):
                    pass
                driver.await_that(lambda: driver.out.count("Waiting for connect") == rounds + 1, "the next round")
            driver.kill()

    @promise("The agent does not keep a process alive: when it is the only thread left, it ends the process with "
             "status 0.")
    def test_process_ends_when_only_the_agent_is_left(self):
        """While another thread runs it stays, without its main thread as well."""
        if self.target.emulated:
            self.skipTest("the emulator has a thread of its own")
        driver, _ = self.start()
        worker = driver.spawn()
        block = driver.malloc(10)
        driver.free(block)
        worker.send(f"free {block:#x}")
        driver.await_that(lambda: driver.out == self.waiting + double_free(block), "report")
        driver.send("end_thread")
        self.assertFalse(self.spins(driver, 1.5))  # more than one look of the agent
        driver.release(worker.tid)
        self.assertEqual(driver.finish(end_input=False), 0)
        self.assertEqual(driver.out, self.waiting + double_free(block) + exit_line(worker.tid))

    def test_descriptors_closed_by_the_program(self):
        """The connection's: the agent says so and ends. The listening one: missed by nobody until the next round."""
        ends = {"srv_socket_desc": "get packet error Bad file descriptor\n", "srv_desc": BROKEN}
        for symbol, message in ends.items():
            with self.subTest(symbol):
                driver, port = self.start()
                with self.client(driver, port) as client:
                    driver.await_that(lambda: driver.out.endswith(CONNECTED), "connection")
                    driver.await_that(lambda: driver.read("srv_socket_desc") != 0xFFFFFFFF, "its descriptor")
                    driver.close(driver.read(symbol))
                    client.sendall(packet("QUARL_HEAD_TID=0"))
                driver.await_that(lambda: message in driver.out, "the message")
                self.assertFalse(self.spins(driver))
                again = self.waiting if symbol == "srv_desc" else ""
                self.assert_ends(driver, self.waiting + CONNECTED + message + again)

    @promise("It has none of its parent's log descriptors, timer and agent.")
    def test_gone_in_a_child_and_absent_when_off(self):
        driver, port = self.start()
        child = driver.stopped_child("repeat 10 malloc 10")
        self.assertEqual((self.sockets(child), self.sockets(driver.pid) > 0), (0, True))
        os.kill(child, signal.SIGCONT)
        self.assertEqual(driver.answer(), 0)
        with self.client(driver, port) as client:
            client.sendall(packet("QUARL_HEAD_TID=0"))
        self.ended(driver, self.waiting + self.round())
        self.assert_ends(driver, driver.out)
        driver = self.driver("QUARL_DEMO_THREAD=0")
        with open(f"/proc/{driver.pid}/status") as file:
            threads = re.search(r"Threads:\t(\d+)", file.read())[1]
        self.assertEqual((driver.read("srv_desc"), threads if not self.target.emulated else "1"), (0xFFFFFFFF, "1"))
        self.assert_ends(driver)

    def test_signals_of_the_program_stay_away_and_packets_arrive_under_load(self):
        driver, port = self.start(AGENT + "QUARL_THREAD=1")
        worker = driver.spawn()
        worker.send("repeat 30000 free 0")
        with self.client(driver, port) as client:
            for index in range(300):
                client.sendall(packet(f"QUARL_HEAD_TID={index % 2}"))
                if index % 30 == 0:
                    driver.signal(signal.SIGUSR1)
        driver.answer(worker.number)
        self.ended(driver, self.waiting + self.round())
        self.assertNotIn("interrupted", driver.out)
        self.assert_ends(driver, driver.out)


if __name__ == "__main__":
    case.main()
