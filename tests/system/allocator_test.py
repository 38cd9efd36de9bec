# SPDX-License-Identifier: Apache-2.0
"""The allocator as programs know it: arguments, alignment, contents, and that the size rule accuses no sound block."""

import signal

import case
from log_file import read_log
from promise import promise

ENOMEM, EINVAL = 12, 22
NOISY = "QUARL_SLOPOVER_MALLOC=1 QUARL_SLOPOVER_FREE=1 "


class Entries(case.Case):
    def test_arguments(self):
        for config in ("", "QUARL_MEM_HEAD=0", "QUARL_ALL=0"):
            driver = self.driver(config)
            cases = [("calloc 0x10000 0x10001", (0, ENOMEM)), ("reallocarray 0 0x10000 0x10001", (0, ENOMEM)),
                     ("posix_memalign 2 8", (0, EINVAL)), ("posix_memalign 24 8", (0, EINVAL)),
                     ("aligned_alloc 24 8", (0, EINVAL)), ("malloc 0xffffffff", (0, ENOMEM)),
                     ("realloc 0 0xfffffff0", (0, None)), ("memalign 64 0xffffffc0", (0, ENOMEM))]
            for command, (value, number) in cases:
                with self.subTest(command, config=config):
                    answer = driver.do(command)
                    self.assertEqual((answer, answer.number if number else None), (value, number))
            self.assertEqual(driver.usable_size(0), 0)
            self.assert_ends(driver)

    def test_alignment_contents_and_usable_size(self):
        for config in ("", "QUARL_SLOPOVER=0 QUARL_HEAD_TID=0", "QUARL_MEM_HEAD=0"):
            driver = self.driver(config)
            for alignment in (1, 4, 8, 16, 64, 4096, 65536):
                for command in ("memalign", "posix_memalign", "aligned_alloc"):
                    if command != "memalign" and alignment < 4:
                        continue
                    block = driver.do(f"{command} {alignment} 100")
                    self.assertEqual((block % max(alignment, 8), block > 0), (0, True), (command, alignment))
            self.assertEqual((driver.valloc(10) % 4096, driver.pvalloc(10) % 4096), (0, 0))
            for alignment, adjusted in ((12, 16), (24, 32), (100, 128)):
                if "MEM_HEAD" not in config:
                    self.assertEqual(driver.memalign(alignment, 10) % adjusted, 0)
            block = driver.malloc(1000)
            driver.fill(block, 0xEE, 1000)
            driver.free(block)
            block = driver.calloc(10, 100)
            self.assertEqual(driver.holds(block, 0, 1000), 1)
            usable = driver.usable_size(block)
            self.assertTrue(usable == 1000 if "MEM_HEAD" not in config else usable >= 1000)
            grown = driver.reallocarray(block, 1000, 300)
            self.assertEqual(driver.holds(grown, 0, 1000), 1)
            self.assert_ends(driver)


    @promise("With `QUARL_CONTRACT=libc`, which `quarl run` sets, a request of 0 bytes gets a block, blocks are aligned as "
             "glibc aligns them, and a failure sets `ENOMEM`.")
    def test_glibc_contract(self):
        alignment = 8 if self.target.emulated else 16
        for config in ("", "QUARL_SLOPOVER=0 QUARL_HEAD_TID=0", "QUARL_HEAD_STACKDEPTH=0", "QUARL_MEM_HEAD=0", "QUARL_PROF=0"):
            with self.subTest(config):
                driver = self.driver(NOISY + config, environment={"QUARL_CONTRACT": "libc"})
                for command in ("malloc 0", "calloc 0 5", "calloc 5 0", "realloc 0 0", "reallocarray 0 0 4"):
                    block = driver.do(command)
                    self.assertTrue(block > 0 and block % alignment == 0, command)
                    driver.free(driver.realloc(block, 10))
                blocks = [driver.do(f"{how} {size}") for size in (1, 24, 100, 5000, 200000)
                          for how in ("malloc", "calloc 1", "realloc 0")]
                blocks = [driver.realloc(block, 777) for block in blocks[::2]] + blocks[1::2]
                self.assertEqual({block % alignment for block in blocks}, {0})
                for block in blocks:
                    driver.free(block)
                for command in ("malloc 0xfffffff0", "realloc 0 0xfffffff0", "memalign 64 0xffffffc0"):
                    answer = driver.do(command)
                    self.assertEqual((answer, answer.number), (0, ENOMEM), command)
                self.assert_ends(driver)

    def test_overrun_of_an_empty_block_is_found(self):
        driver = self.driver("", environment={"QUARL_CONTRACT": "libc"})
        block = driver.malloc(0)
        self.assertGreater(block, 0)
        driver.fill(block, 0x41, 1)
        driver.send(f"free {block:#x}")
        driver.await_match("slop over at tail")
        driver.kill()

    @promise("Otherwise `malloc(0)`, `calloc` of 0 bytes and `realloc(NULL, 0)` return null.",
             "Otherwise blocks are aligned to 8, where glibc aligns to 16 on i686; `memalign` aligns to 16 and more.")
    def test_what_differs_from_the_bare_allocator(self):
        driver = self.driver("")
        for command in ("malloc 0", "calloc 0 5", "calloc 5 0", "realloc 0 0"):
            self.assertEqual(driver.do(command), 0, command)
        blocks = [driver.malloc(size) for size in range(1, 100)]
        self.assertEqual({block % 8 for block in blocks}, {0})
        self.assertEqual({driver.memalign(16, size) % 16 for size in range(1, 100)}, {0})
        self.assert_ends(driver)

    @promise("Blocks of 128 KiB and more are mappings of their own.")
    def test_large_blocks_are_mappings_for_ever(self):
        """No history of sizes makes the allocator keep them in the heap."""
        driver = self.driver("")
        for size, mapped in ((128 << 10, 1), (1 << 20, 1), (128 << 10, 1), (120 << 10, 0)):
            for _ in range(3):
                before = self.counts(driver)
                block = driver.malloc(size)
                driver.free(block)
                self.assertEqual([after - earlier for earlier, after in zip(before, self.counts(driver))], [mapped] * 2, size)
        self.assert_ends(driver)

    def test_kept_pages_are_cleared_and_growth_keeps_the_bytes(self):
        driver = self.driver("")
        for _ in range(3):
            block = driver.malloc(200000)
            driver.fill(block, 0xEE, 200000)
            driver.free(block)
            block = driver.calloc(1, 200000)
            self.assertEqual(driver.holds(block, 0, 200000), 1)
            driver.fill(block, 0x5A, 200000)
            for size in (230000, 300000, 1000000, 4000000, 250000):
                block = driver.realloc(block, size)
                self.assertEqual(driver.holds(block, 0x5A, 200000), 1)
            driver.free(block)
        self.assertEqual(self.balance(driver), 0)
        self.assert_ends(driver)

    def balance(self, driver):
        """Records of live mappings."""
        driver.do(f"raise {signal.SIGUSR1}")
        return driver.read("useed_head")

    def counts(self, driver):
        """How many mappings the allocator has made and undone for blocks so far."""
        driver.do(f"raise {signal.SIGUSR1}")
        counts = read_log(self.log_path(driver, "quarl")).stats.counts()
        return [counts.get(name, (0,))[0] for name in ("chunk map", "chunk unmap")]


class SizeRule(case.Case):
    def test_no_sound_block_is_accused(self):
        """Sizes around every page boundary and the limit of blocks with mappings of their own, every alignment, and
        resizes between them, checked as they live."""
        parts = ["", "QUARL_HEAD_TID=0", "QUARL_HEAD_STACKDEPTH=0 QUARL_HEAD_TIME=0", "QUARL_SLOPOVER=0", "QUARL_HEAD_STACKDEPTH=64"]
        for config in parts:
            for contract in ("plain", "libc"):
                process = self.run_victim("size_sweep", config=config, environment={"QUARL_CONTRACT": contract})
                self.assert_ends(process)
                self.assertGreater(process.said("checked")[0], 3000)


if __name__ == "__main__":
    case.main()
