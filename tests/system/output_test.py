# SPDX-License-Identifier: Apache-2.0
"""What the checker prints: whole messages past the program's own output, or nothing; and that it leaves no trace."""

import os
import resource
import signal
import socket

import case
from promise import promise
from report_text import take_report, take_reports
from tables import histogram, statistics

QUIET_END = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0 "


class Output(case.Case):
    def packets(self, config):
        """A driver of whose every write to standard output a packet is made, and a function that takes what there is."""
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.addCleanup(ours.close)
        driver = self.driver(config, before_start=lambda: os.dup2(theirs.fileno(), 1))
        theirs.close()
        ours.setblocking(False)

        def take():
            taken = []
            while True:
                try:
                    data = ours.recv(1 << 16)
                except BlockingIOError:
                    return taken
                if not data:
                    return taken
                taken.append(data.decode())
        return driver, take

    @promise("Messages go to descriptor 1 (a few to 2), each with one `write`, past the application's stdio.")
    def test_each_message_is_one_write(self):
        driver, take = self.packets(QUIET_END + "QUARL_HEAD_STACKDEPTH=64 QUARL_PRINT_PROFINFO=1")
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        driver.check()
        [report] = take()
        self.assertEqual((take_report(report)[0].address, take_report(report)[1]), (block, ""))
        driver.set_word(block - 4, 0)
        driver.check()
        [report] = take()
        self.assertEqual((take_report(report)[0].kind, take_report(report)[1]), ("head", ""))
        driver.set_word(block - 4, block | 3)
        driver.set_word(block + 10, 0xFEDABEEB)
        driver.do(f"raise {signal.SIGUSR1}")
        table, saved = take()
        self.assertEqual(table, statistics(malloc=(1, 0, 10), size=10, peak=10))
        self.assertRegex(saved, r"^Log info has been saved to log file \S+\.\n$")
        self.assertEqual(driver.finish(), 0)
        self.assertEqual(take(), [statistics(malloc=(1, 0, 10), size=10, peak=10), histogram([10])])
        self.assertEqual(driver.err, "")

    @promise("Messages go to descriptor 1 (a few to 2), each with one `write`, past the application's stdio.")
    def test_words_of_the_program_keep_their_place(self):
        """What it has in the buffer of its stdio is neither written out by a message nor mixed with one."""
        driver, take = self.packets(QUIET_END)
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        driver.say("mine")
        driver.check()
        [report] = take()
        self.assertEqual(take_reports(report)[1], "")
        driver.set_word(block + 10, 0xFEDABEEB)
        self.assertEqual((driver.finish(), take()), (0, ["mine"]))

    @promise("`errno` is kept.")
    def test_errno_is_kept(self):
        """Through messages and writes that fail behind the program's back."""
        driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=280 QUARL_SLOPOVER_MALLOC=1")
        driver.limit(resource.RLIMIT_FSIZE, 1000)
        driver.close(1)
        block = driver.malloc(10)
        descriptor = driver.open("quarlcfg.ini", os.O_RDONLY)
        driver.fill(block + 10, 0, 1)
        for command in ("malloc 20", "calloc 2 10", "realloc 0 30", "memalign 64 30", "free 0", "check", f"raise {signal.SIGUSR1}",
                        "mmap 0 4096 3 34 -1 0", f"mmap 0 4096 1 2 {descriptor} 0", f"repeat 3 raise {signal.SIGUSR1};malloc 1"):
            self.assertEqual(driver.do(command).number, 0, command)
        self.assertEqual(driver.do("mmap 0 0 3 34 -1 0").number, 22)
        self.assertEqual(driver.munmap(1, 100).number, 22)
        self.assertEqual(driver.malloc(0xFFFFFFF0).number, 12)
        self.assertEqual((driver.finish(), driver.out, driver.err), (0, "", ""))

    @promise("A closed pipe, a full disk or a limit of the file size raises no signal in the application: the "
             'message is lost, or "write log file failed" is printed.')
    def test_reader_that_has_gone_is_no_harm(self):
        """Nobody reads the pipe any more: no signal ends the program, nor is one left for it."""
        driver = self.driver("QUARL_PRINT_PROFINFO=1 " + QUIET_END)
        driver.selector.unregister(driver.popen.stdout)
        driver.popen.stdout.close()
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        for _ in range(3):
            driver.check()
            driver.do(f"raise {signal.SIGUSR1}")
        driver.do("handle 13 leave 9")
        driver.do(f"raise {signal.SIGUSR1}")
        self.assertEqual((driver.finish(), driver.err), (0, ""))

    @promise("Without a fault and with the default items nothing is printed at all.")
    def test_nothing_is_printed_without_a_fault(self):
        (self.directory / "file").write_bytes(b"x" * 10000)
        driver = self.driver("")
        worker = driver.spawn()
        descriptor = driver.open("file", os.O_RDONLY)
        for each in (driver, worker):
            blocks = [each.malloc(0), each.malloc(10), each.calloc(3, 70000), each.memalign(64, 33), each.realloc(0, 12)]
            mapped = [each.do("mmap 0 8192 3 34 -1 0"), each.do(f"mmap 0 8192 1 2 {descriptor} 0")]
            each.malloc(0xFFFFFFF0)
            each.munmap(mapped[0], 8192)
            blocks = [each.realloc(block, size) for block, size in zip(blocks, (5, 500000, 8, 90, 0))]
            for block in blocks:
                each.free(block)
            each.check()
            each.do(f"raise {signal.SIGUSR1}")
            self.assertEqual(each.do("fork malloc 10;free 0;check"), 0)
        self.assert_ends(driver)


if __name__ == "__main__":
    case.main()
