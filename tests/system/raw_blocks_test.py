# SPDX-License-Identifier: Apache-2.0
"""Raw blocks as the layer gets them: those that the C library maps although it should not, and those without a header."""

import re
import signal
import subprocess
from pathlib import Path

import case
from log_file import read_log
from promise import promise

ENOMEM = 12
RLIMIT_AS = 9
MAPPED = 2  # the bit of a chunk word
EVERY_CALL_CHECKS = "QUARL_SLOPOVER_MALLOC=1 QUARL_SLOPOVER_FREE=1 QUARL_TIMER_SIG=SIGUSR2 "


class AddressSpaceLimit(case.Case):
    """A thread that finds no room for an arena of its own: the C library maps each of its chunks."""

    def setUp(self):
        super().setUp()
        if self.target.emulated:
            self.skipTest("the emulator keeps the limit from the program")

    def limit(self, driver, room):
        status = Path(f"/proc/{driver.pid}/status").read_text()
        used = int(re.search(r"VmSize:\s+(\d+) kB", status)[1]) * 1024
        self.assertEqual(driver.do(f"limit {RLIMIT_AS} {used + room}"), 0)

    def chunk_word(self, driver, block, config):
        """Of a block whose header has no trace: the offset is known then."""
        return driver.word(block - (32 if "MEM_HEAD" not in config else 0) - 4)

    def test_blocks_of_a_thread_without_an_arena(self):
        for config in ("QUARL_HEAD_STACKDEPTH=0", "QUARL_MEM_HEAD=0 QUARL_OUTPUT_LOG=1"):
            with self.subTest(config):
                driver = self.driver(EVERY_CALL_CHECKS + config)
                worker = driver.spawn()
                self.limit(driver, 1000 << 10)  # an arena takes 1 MiB
                block = worker.malloc(100)
                self.assertTrue(block > 0 and int(self.chunk_word(driver, block, config)) & MAPPED, config)
                self.use(worker)
                answer = worker.malloc(50 << 20)
                self.assertEqual((answer, answer.number), (0, ENOMEM))
                worker.free(block)
                self.assertEqual(driver.read("useed_head") if "MEM_HEAD" not in config else 0, 0)
                self.assert_ends(driver)
                counts = read_log(self.log_path(driver, "quarlAll" if "OUTPUT" in config else "quarl")).stats.counts()
                self.assertEqual(counts["mmap"], counts["chunk map"])
                self.assertEqual(counts["munmap"], counts["chunk unmap"])

    def use(self, worker):
        """Every call, on memory that was written before it was given back."""
        for size in (1, 100, 4000, 5000, 60000, 131000, 140000, 200000):
            block = worker.malloc(size)
            worker.fill(block, 0xEE, size)
            worker.free(block)
            block = worker.calloc(1, size)
            self.assertEqual(worker.holds(block, 0, size), 1, size)
            worker.fill(block, 0x5A, size)
            for other in (size * 2, size // 2 + 1, size + 5000):
                block = worker.realloc(block, other)
                self.assertGreater(block, 0, (size, other))
                self.assertEqual(worker.holds(block, 0x5A, size // 2 + 1), 1, (size, other))
            worker.free(block)
            for alignment in (16, 256, 4096, 8192):
                block = worker.memalign(alignment, size)
                self.assertEqual((block > 0, block % alignment), (True, 0), (alignment, size))
                worker.fill(block, 0xEE, size)
                worker.free(block)


class Books(case.Case):
    """The layer's books of its mapped chunks lie in the C library's heap, where a program may overrun them."""

    OFFSET = 32  # of a block without a trace
    LEAF = 20 * 1024  # bytes, for 4 MiB of addresses

    def address_of(self, driver, symbol):
        """Of one that the library does not export."""
        text = subprocess.run([self.target.tool("nm"), "--defined-only", self.target.library], capture_output=True, text=True, check=True).stdout
        values = {name: int(value, 16) for value, _, name in re.findall(r"^(\w+) (\w) (\S+)$", text, re.M)}
        return driver.symbol("useed_head") - values["useed_head"] + values[symbol]

    @promise("An overrun over the layer's books of large blocks does no harm to them.")
    def test_leaf_that_was_written_over(self):
        for byte in (0, 0x41, 0xFF):
            with self.subTest(byte=byte):
                driver = self.driver("QUARL_HEAD_STACKDEPTH=0 QUARL_OUTPUT_LOG=1")
                leaves = self.address_of(driver, "_ZN5quarl5glibc11mapped_bookE")
                sizes = (140000, 300000, 5000000)
                blocks = [driver.malloc(size) for size in sizes] + [driver.memalign(alignment, 200000) for alignment in (64, 8192)]
                books = {driver.word(leaves + 4 * (block - self.OFFSET >> 22)) for block in blocks}
                for block in blocks:
                    driver.fill(block, 0x5A, 140000)
                for leaf in books:
                    driver.fill(leaf, byte, self.LEAF)
                blocks[0] = driver.realloc(blocks[0], 1000000)
                blocks[1] = driver.realloc(blocks[1], 200)
                self.assertEqual(driver.holds(blocks[0], 0x5A, 140000) and driver.holds(blocks[1], 0x5A, 200), 1)
                for block in blocks:
                    driver.free(block)
                self.assertEqual(driver.read("useed_head"), 0)
                self.assert_ends(driver)


class WithoutHeader(case.Case):
    """The search for a pointer that is no block looks at every block, and ends at the first that is damaged. So a release
    that goes by beside a damaged block has searched for nothing, however many blocks there are."""

    def test_blocks_from_before_the_hooks(self):
        process = self.run_victim("late_release", "damage", config="")
        self.assert_ends(process)

    def test_blocks_from_while_headers_were_off(self):
        for before in ("QUARL_MEM_HEAD=0", "QUARL_MEM_HEAD=0 QUARL_PROF=0"):
            with self.subTest(before):
                driver = self.driver(before)
                bare = [driver.do(f"{how} {size}") for size in (100, 140000)
                        for how in ("malloc", "calloc 1", "realloc 0", "memalign 64", "malloc")]
                bare = [driver.realloc(block, 150) if block is bare[0] else block for block in bare]
                kept = bare.pop()
                driver.free(driver.malloc(100))  # its addresses may be those of a headed block soon
                self.configure("QUARL_MEM_HEAD=1 QUARL_PROF=1")
                driver.do(f"raise {int(signal.SIGUSR1)}")
                damaged = driver.malloc(30)
                whole = driver.word(damaged - 4)
                driver.set_word(damaged - 4, 0)
                for block in bare:
                    driver.free(block)
                driver.set_word(damaged - 4, whole)
                blocks = [driver.malloc(100) for _ in range(20)]
                driver.set_word(blocks[-1] - 4, 0)
                driver.send(f"free {kept + 8:#x}")  # of nobody's: searched for
                driver.await_match("slop over occurs at front")
                driver.kill()


if __name__ == "__main__":
    case.main()
