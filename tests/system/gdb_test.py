# SPDX-License-Identifier: Apache-2.0
"""tools/gdb/quarl.py: what gdb tells of a process and of a core file, against what the program itself says."""

import re
import signal
import subprocess
import time
from pathlib import Path

import case
import core_file
from header import FREED_MARK

SCRIPT = Path(__file__).resolve().parents[2] / "tools" / "gdb" / "quarl.py"
COMMANDS = ("blocks", "parked", "mappings", "statistics")
BLOCK = re.compile(r"^(\d+) bytes at (0x[0-9a-f]+), (\w+), #(\d+), thread (\d+)(?:  DAMAGED: (.*))?$", re.M)


class Gdb(case.Case):
    def setUp(self):
        super().setUp()
        core_file.skip_where_they_go_elsewhere(self)

    def gdb(self, core, *commands, symbols=True):
        """{command: what it prints}. Without symbols gdb knows neither program nor library: the memory alone."""
        line = ["gdb-multiarch", "-nx", "-batch", "-ex", f"set sysroot {self.target.sysroot()}", "-ex", "set width 0"]
        line += ["-ex", f"file {self.target.victim('driver')}"] if symbols else ["-ex", "set auto-solib-add off"]
        line += ["-ex", f"core-file {core}", "-ex", f"source {SCRIPT}"]
        for command in commands:
            line += ["-ex", f"echo <<{command}>>\\n", "-ex", f"quarl {command}"]
        done = subprocess.run(line, capture_output=True, text=True, timeout=200)
        told = dict(re.findall(r"<<(.*?)>>\n(.*?)(?=<<|\Z)", done.stdout, re.S))
        self.assertEqual(set(told), set(commands), done.stderr)
        return told, done.stderr

    def died(self, driver, signal_number=signal.SIGABRT):
        driver.signal(signal_number)
        driver.finish()
        return core_file.take(self)

    def start(self, config="", **options):
        return self.driver(config, before_start=core_file.allow, **options)

    def blocks(self, text):
        """{address: (size, operation, what is wrong)}"""
        return {int(row[1], 16): (int(row[0]), row[2], row[5]) for row in BLOCK.findall(text)}

    def test_blocks_of_a_dead_process(self):
        for config, environment in (("", {}), ("QUARL_HEAD_STACKDEPTH=0 QUARL_HEAD_TIME=1", {}), ("", {"QUARL_END_SIGNALS": "1"})):
            with self.subTest(config, **environment):
                driver = self.start(config, environment=environment)
                made = {int(driver.malloc(100 + i)): (100 + i, "malloc") for i in range(40)}
                made[int(driver.memalign(64, 20))] = (20, "memalign")
                made[int(driver.malloc(300000))] = (300000, "malloc")
                for block in list(made)[:10]:
                    driver.free(block)
                    del made[block]
                mine = list(made)
                core = self.died(driver)
                for symbols in (True, False):
                    told, _ = self.gdb(core, *COMMANDS, f"block {mine[0] + 5}", f"block {mine[-1] + 300001}", "block 16",
                                       symbols=symbols)
                    found = self.blocks(told["blocks"])
                    without_operation = "STACKDEPTH=0" in config  # malloc's blocks have no word that holds it then
                    if not without_operation:
                        self.assertEqual({block: found[block][:2] for block in made}, made)
                        self.assertEqual({row[2] for row in found.values()}, {""})
                    for size in (size for size, _ in made.values()):
                        self.assertIn(f"{size} bytes at ", told["blocks"])
                    count = len(re.findall(r"^\d+ bytes at ", told["blocks"], re.M))
                    self.assertRegex(told["blocks"], rf"\n{count} of {count} blocks, \d+ bytes, 0 damaged\n$")
                    self.assertEqual(told["parked"], "no thread is stopped\n")
                    self.assertRegex(told["mappings"], r"^303104 bytes at 0x[0-9a-f]+, anonymous, #")
                    self.assertRegex(told["statistics"], r"\nfree +1\d +0 +\d+\n")
                    self.assertTrue(told[f"block {mine[0] + 5}"].startswith(f"{mine[0] + 5:#x} is byte 5 of a block of 110 bytes"))
                    self.assertIn("is in the guard 1 bytes behind a block of 300000 bytes", told[f"block {mine[-1] + 300001}"])
                    self.assertEqual(told["block 16"], "0x10 lies in no live block, nor near one\n")
                    if symbols and not without_operation and not self.target.emulated:  # which hides where the libraries lie
                        self.assertRegex(told[f"block {mine[0] + 5}"], r"(?s)allocated from\n.*malloc.*do_malloc.*main")

    def test_damaged_heap(self):
        """Every header of a stretch of blocks overwritten: what is left is told, and where the list breaks."""
        driver = self.start("QUARL_SLOPOVER_EXIT=0")
        blocks = [int(driver.malloc(100)) for _ in range(12)]
        released = int(driver.malloc(100))
        driver.free(released)
        driver.set_word(blocks[3] + 100, 0)                # a guard
        driver.set_word(blocks[5] - 8, 0xDEAD0000)         # a link to nowhere
        driver.set_word(blocks[7] - 4, 0x41414141)         # a header without a name
        driver.set_word(blocks[9] - 16, 0xF0000000)        # a size
        self.assertEqual(driver.word(released - 4), FREED_MARK)
        core = self.died(driver)
        told, _ = self.gdb(core, "blocks", f"block {blocks[4]}", f"block {blocks[6] + 20}", f"block {released}")
        self.assertIn("behind it 00 00 00 00, should be eb be da fe", told["blocks"])
        self.assertIn("its next_link leads to 0xdead0000, where no block is", told["blocks"])
        self.assertIn("its header does not name it", told["blocks"])
        self.assertIn("a size of 4026531840", told["blocks"])
        for block in blocks:
            self.assertIn(f"bytes at {block:#x}", told["blocks"])  # from the other end of the list
        self.assertRegex(told[f"block {blocks[4]}"], "below it in memory: .*DAMAGED: behind it")
        self.assertRegex(told[f"block {blocks[6] + 20}"], "above it in memory: .*DAMAGED")
        self.assertIn("; a block there was released\n", told[f"block {released}"])

    def test_circle(self):
        driver = self.start("QUARL_SLOPOVER_EXIT=0")
        blocks = [int(driver.malloc(100)) for _ in range(6)]
        driver.set_word(blocks[4] - 8, blocks[1] | driver.word(blocks[4] - 8) & 3)
        told, _ = self.gdb(self.died(driver), "blocks")
        self.assertIn(f"its next_link leads to {blocks[1]:#x}, which does not lead back", told["blocks"])
        self.assertIn(f"100 bytes at {blocks[5]:#x}", told["blocks"])

    def test_stopped_threads(self):
        driver = self.start("QUARL_SLOPOVER_EXIT=0")
        workers = [driver.spawn() for _ in range(3)]
        for worker in workers[:2]:
            block = driver.malloc(10)
            driver.free(block)
            worker.send(f"free {block:#x}")
            driver.await_that(lambda: driver.waits_for_signal(worker.tid), "a stopped thread")
        driver.release(workers[0].tid)
        driver.await_match("exit!!")
        end = time.monotonic() + 60
        while Path(f"/proc/{driver.pid}/task/{workers[0].tid}").exists():
            self.assertLess(time.monotonic(), end)
            driver.read_some(0.05)
        told, _ = self.gdb(self.died(driver), "parked")
        self.assertRegex(told["parked"], rf"\Athread {workers[1].tid} is stopped by a fault \(.*\)\n\Z")

    def test_live_process(self):
        if self.target.emulated:
            self.skipTest("the emulator is another process to gdb: core files are for that")
        driver = self.start()
        block = int(driver.malloc(77))
        shown = subprocess.run(["gdb-multiarch", "-nx", "-batch", "-p", str(driver.pid), "-ex", f"source {SCRIPT}", "-ex",
                                "quarl blocks", "-ex", f"quarl block {block}"], capture_output=True, text=True, timeout=200)
        self.assertEqual(self.blocks(shown.stdout)[block], (77, "malloc", ""))
        self.assertRegex(shown.stdout, r"allocated from\n    0x[0-9a-f]+  malloc.*\n    0x[0-9a-f]+  do_malloc.*driver/commands\.c:\d+\n")
        self.assertEqual(driver.finish(), 0)

    def test_process_without_the_checker(self):
        driver = self.start(preload=False)
        told, errors = self.gdb(self.died(driver), *COMMANDS)
        self.assertEqual(set(told.values()), {""})
        self.assertEqual(errors.count("quarl: the process has no libquarl.so, or does not run yet"), len(COMMANDS))


if __name__ == "__main__":
    case.main()
