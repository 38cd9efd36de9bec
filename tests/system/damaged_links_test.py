# SPDX-License-Identifier: Apache-2.0
"""Headers whose links or claims are damaged: what is mended, what is reported, and that nothing wild is followed."""

import re
import signal

import case
from promise import promise
from report_text import double_free, take_reports

QUIET_END = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0 "
SELF, NEXT, PREV, SIZE = 4, 8, 12, 16  # bytes below the user pointer


class DamagedLinks(case.Case):
    def chain(self, count=6):
        """A driver, and blocks that follow each other on the list, the last one with a broken guard."""
        driver = self.driver(QUIET_END)
        blocks = [driver.malloc(16) for _ in range(count)]
        driver.fill(blocks[-1] + 16, 0, 1)
        return driver, blocks

    def set_link(self, driver, block, which, target):
        driver.set_word(block - which, target | driver.word(block - which) & 3)

    def found(self, driver):
        """The blocks that a check of the whole heap accuses."""
        before = len(driver.out)
        driver.check()
        driver.read_some(0)
        return [int(address, 16) for address in re.findall(r"^start_addr : (0x\w+)$", driver.out[before:], re.M)]

    @promise("The release of a block whose links, or whose neighbours' links, were cut puts the list together again.")
    def test_release_of_a_neighbour_mends_the_list(self):
        for damaged, which, released in ((1, NEXT, 2), (3, PREV, 2), (1, NEXT, 1), (2, PREV, 2)):
            with self.subTest(damaged=damaged, which=which, released=released):
                driver, blocks = self.chain()
                self.set_link(driver, blocks[damaged], which, 0)
                driver.free(blocks.pop(released))
                self.assertEqual(self.found(driver), blocks[-1:])
                links = [(driver.word(block - PREV) & ~3, driver.word(block - NEXT) & ~3) for block in blocks]
                self.assertEqual([prev for prev, _ in links[1:]], blocks[:-1])
                self.assertEqual([following for _, following in links[:-1]], blocks[1:])
                self.assert_ends(driver, driver.out, driver.err)

    def test_blocks_made_behind_a_cut_are_found(self):
        driver, blocks = self.chain(3)
        self.set_link(driver, blocks[-1], PREV, 0)
        driver.free(blocks[1])
        late = driver.malloc(16)
        driver.fill(late + 16, 0, 1)
        self.assertEqual(self.found(driver), [blocks[-1], late])
        self.assert_ends(driver, driver.out, driver.err)

    @promise("Every walk along the list ends, also along a circle that damaged links make.")
    def test_circle_past_the_head(self):
        driver, blocks = self.chain()
        self.set_link(driver, blocks[-1], NEXT, blocks[1])
        for _ in range(2):
            accused = self.found(driver)
            self.assertEqual(set(accused), {blocks[-1]})
            self.assertLess(len(accused), 20)
        driver.send(f"free {blocks[0] + 0x1238:#x}")  # a pointer that is no block is looked for along the list
        driver.await_match("invalid pointer", "err")
        self.assertIn(driver.finish(), (-signal.SIGABRT, 128 + signal.SIGABRT))

    @promise("When a damaged link loses blocks from the list, one line on standard error says so.")
    def test_circle_is_told_once(self):
        for first, last in ((1, 3), (2, 40), (7, 8), (97, 98)):
            with self.subTest(first=first, last=last):
                driver, blocks = self.chain(100)
                driver.fill(blocks[last] + 16, 0, 1)  # a guard on the circle
                self.set_link(driver, blocks[last], NEXT, blocks[first])
                for _ in range(3):
                    driver.malloc(16)
                    self.assertLess(len(self.found(driver)), 3)
                told = re.findall(r"breaks off at (0x\w+): (\d+) of (\d+) blocks", driver.err)
                self.assertEqual(len(told), 1, driver.err)
                lost = len(blocks) - 1 - last + 1  # the block made last is one of them
                self.assertEqual((int(told[0][0], 16), int(told[0][1])), (blocks[last], lost))

    def test_blocks_that_outlive_the_list_and_the_checks(self):
        driver, blocks = self.chain(3)
        self.set_link(driver, blocks[0], NEXT, 0)
        self.set_link(driver, blocks[1], PREV, 0)
        driver.free(blocks[0])  # nothing leads to the others now
        self.configure("QUARL_ALL=0")
        driver.do(f"raise {signal.SIGUSR1:d}")
        driver.free(blocks[1])
        self.assertEqual(driver.finish(), 0)
        self.assertEqual(driver.out, "")

    @promise("A link to where no block can be is damage of the block that holds it.")
    def test_wild_link_is_a_broken_head(self):
        for which in (NEXT, PREV):
            for wild in (0xFFFFF008, 0x1000, 0x41414144):
                with self.subTest(which=which, wild=hex(wild)):
                    driver, blocks = self.chain()
                    self.set_link(driver, blocks[2], which, wild)
                    self.assertEqual(self.found(driver), [blocks[2]])
                    worker = driver.spawn()
                    worker.send(f"free {blocks[2]:#x}")
                    driver.await_match(r"head[\s\S]*head[\s\S]*call trace :\n(\d+ : \w+\n)+")
                    reports, _ = take_reports(driver.out)
                    self.assertEqual([report.address for report in reports], [blocks[2]] * 2)
                    self.assertEqual([driver.word(blocks[i] - SELF) & ~3 for i in (1, 3)], [blocks[1], blocks[3]])

    def test_block_that_a_broken_list_has_lost(self):
        driver, blocks = self.chain()
        for block in (blocks[1], blocks[3]):
            self.set_link(driver, block, NEXT, 0)
            self.set_link(driver, block, PREV, 0)
        worker = driver.spawn()
        self.set_link(driver, blocks[2], NEXT, 0)
        self.set_link(driver, blocks[2], PREV, 0)
        worker.send(f"free {blocks[2]:#x}")
        driver.await_match(r"at head[\s\S]*call trace :\n(\d+ : \w+\n)+")
        self.assertNotIn("double free", driver.out)

    def test_end_of_the_list_that_is_gone(self):
        """A forged block becomes the end of the list, and its memory goes: the next block is linked behind a real one."""
        driver = self.driver(QUIET_END)
        large = driver.malloc(1 << 20)
        before, last = driver.malloc(16), driver.malloc(16)
        forged = large + 64
        for offset in range(4, 68, 4):
            driver.set_word(forged - offset, driver.word(last - offset))
        for which, target in ((SELF, forged), (NEXT, last), (PREV, before)):
            self.set_link(driver, forged, which, target)
        self.set_link(driver, last, PREV, forged)
        driver.free(last)
        driver.free(large)
        late = driver.malloc(16)
        driver.fill(late + 16, 0, 1)
        self.assertEqual(self.found(driver), [late])
        self.assertEqual(driver.word(late - PREV) & ~3, before)
        self.assert_ends(driver, driver.out, driver.err)

    def test_damaged_end_of_the_list_keeps_its_place(self):
        driver = self.driver(QUIET_END)
        blocks = [driver.malloc(16) for _ in range(3)]
        driver.set_word(blocks[2] - SELF, 0)
        blocks.append(driver.malloc(16))
        self.assertEqual([driver.word(block - NEXT) & ~3 for block in blocks[:3]], blocks[1:])
        self.assertEqual(self.found(driver), [blocks[2]])
        self.assert_ends(driver, driver.out, driver.err)

    def test_size_that_is_off_by_less_than_the_check_sees(self):
        """Without a guard: the pages of its neighbours stay known."""
        driver = self.driver(QUIET_END + "QUARL_SLOPOVER=0")
        block, neighbour = driver.memalign(4096, 4092), driver.malloc(5000)
        driver.set_word(block - SIZE, 4098)
        driver.free(block)
        driver.free(neighbour)
        self.assert_ends(driver)

    @promise("A pointer that a resize moved away from is a block no more: its release is reported as the second.")
    def test_stale_pointer_of_a_resize(self):
        for command in ("free {}", "realloc {} 50", "realloc {} 0"):
            with self.subTest(command):
                driver = self.driver(QUIET_END)
                old = driver.malloc(200)
                driver.malloc(16)
                kept = driver.word(old - SELF)
                moved = driver.realloc(old, 5000)
                self.assertNotEqual(moved, old)
                driver.set_word(old - SELF, kept)
                worker = driver.spawn()
                worker.send(command.format(hex(old)))
                driver.await_match("double free.*\n")
                self.assertEqual(driver.out, double_free(old))
                driver.free(moved)

    @promise("A report reads only memory that is there.")
    def test_broken_head_at_the_start_of_a_mapping(self):
        for words in ((SELF,), (SELF, NEXT, PREV, SIZE)):
            with self.subTest(words=words):
                driver = self.driver(QUIET_END + "QUARL_HEAD_STACKDEPTH=64")
                block = driver.malloc(1 << 20)
                for word in words:
                    driver.set_word(block - word, 0xFFFFFFFC)
                self.assertEqual(self.found(driver), [block])
                self.assert_ends(driver, driver.out, driver.err)

    @promise("What a header claims is bounded before it is used: a claim that cannot be is a broken head.")
    def test_claims_that_cannot_be(self):
        info = 32  # below a pointer whose header has all fields
        for word, value in ((info, 0xFF), (info, 0x1F0408), (info, 0x200408), (info, 0xFF0108), (SIZE, 0xFFFFFFF0),
                            (SIZE, 0x7FFFFFFF), (SIZE, 0x41414141)):
            with self.subTest(word=word, value=hex(value)):
                driver = self.driver(QUIET_END)
                block = driver.malloc(16)
                driver.set_word(block - word, value)
                self.assertEqual(self.found(driver), [block])
                self.assert_ends(driver, driver.out, driver.err)


if __name__ == "__main__":
    case.main()
