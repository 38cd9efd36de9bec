# SPDX-License-Identifier: Apache-2.0
"""Usage statistics: what every call counts, to the byte, printed and in the logs, for the process and per thread."""

import re
import signal

import case
from log_file import FAILED, read_log
from promise import promise
from tables import histogram, saved, statistics

PAGE = 4096
ANONYMOUS = "3 34 -1 0"  # protection, flags, descriptor, offset


class Statistics(case.Case):
    def printed(self, driver):
        """The table that the dump signal prints, without the lines behind it."""
        before = len(driver.out)
        driver.do(f"raise {signal.SIGUSR1}")
        driver.await_that(lambda: "Log info has been saved" in driver.out[before:], "dump")
        return driver.out[before:]

    def assert_table(self, driver, **rows):
        table = statistics(**rows)
        self.assertEqual(self.printed(driver)[: len(table)], table)

    def assert_held(self, driver, size, **rows):
        """As above, but for the peak, which includes moments inside a call that no caller can know."""
        table = self.printed(driver)
        peak = int(re.search(r"peak +(\d+)", table)[1])
        self.assertGreaterEqual(peak, size)
        self.assertEqual(table.split("unfree mem size from")[0], statistics(size, peak, **rows).split("unfree mem size from")[0])

    def test_large_block_that_fails_is_a_failed_malloc_only(self):
        """No mapping was made for it, so none failed: not in the statistics, nor in the record log."""
        driver = self.driver("QUARL_OUTPUT_LOG=1")
        largest = 0x7FFE0000  # more than is free beside the program, and less than what is refused unasked
        held = [driver.malloc(largest) for _ in range(2)]
        self.assertEqual(held[-1], 0)
        self.assertEqual(driver.do("mmap 0 2147418112 3 34 -1 0").number, 12)  # the application's own counts
        made = sum(block != 0 for block in held)
        self.assert_ends(driver)
        log = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual(log.stats.counts()["malloc"][:2], (2, 2 - made))
        self.assertEqual(log.stats.counts()["mmap"][:2], (1 + made, 1))
        failures = [record.brief()[0] for record in log.records if record.kind == FAILED]
        self.assertEqual(failures, ["malloc"] * (2 - made) + ["mmap"])

    @promise("The held bytes and the peak in the statistics count what the application asked for, not what the "
             "allocator used.")
    def test_every_kind_of_call(self):
        driver = self.driver("QUARL_PRINT_PROFINFO=1")
        self.assert_table(driver)
        first, second = driver.malloc(100), driver.malloc(100)
        driver.free(first)
        self.assert_table(driver, malloc=(2, 0, 200), free=(1, 0, 100), size=100, peak=200)
        driver.free(0)
        self.assertEqual(driver.malloc(0), 0)
        self.assertEqual(driver.malloc(0xFFFFFFF0).number, 12)
        self.assertEqual(driver.calloc(0x10000, 0x10000), 0)
        third = driver.calloc(5, 10)
        self.assert_table(driver, malloc=(5, 2, 250), free=(2, 1, 100), size=150, peak=200)
        second = driver.realloc(second, 30)
        fourth = driver.realloc(0, 500)
        self.assertEqual(driver.realloc(0, 0), 0)
        self.assertEqual(driver.realloc(second, 0), 0)
        # 30 + 500 given out, 100 + 30 taken back
        self.assert_table(driver, malloc=(5, 2, 250), realloc=(4, 1, 400), free=(2, 1, 100), size=550, peak=580)
        driver.realloc(fourth, 1)
        fifth = driver.memalign(4096, 70)
        driver.memalign(16, 0)
        self.assertEqual(driver.memalign(16, 0xFFFFFFFF), 0)
        expected = dict(malloc=(5, 2, 250), realloc=(5, 1, -99), memalign=(3, 1, 70), size=121, peak=580)
        self.assert_table(driver, free=(2, 1, 100), **expected)
        for block in (third, fifth):
            driver.free(block)
        self.assertEqual(driver.finish(), 0)
        expected["size"] = 1
        self.assertTrue(driver.out.endswith(statistics(free=(4, 1, 220), **expected) + histogram([1, 0])))

    def test_large_blocks_are_counted_as_blocks_not_as_mappings(self):
        """Bytes held are right before, during and after; the log tells the allocator's mappings from the program's."""
        driver = self.driver("QUARL_PRINT_PROFINFO=1")
        small = driver.malloc(10)
        block = driver.malloc(200000)
        self.assert_held(driver, 200010, malloc=(2, 0, 200010))
        block = driver.realloc(block, 1000000)
        self.assert_held(driver, 1000010, malloc=(2, 0, 200010), realloc=(1, 0, 800000))
        block = driver.realloc(block, 500)
        self.assert_held(driver, 510, malloc=(2, 0, 200010), realloc=(2, 0, -199500))
        driver.free(block)
        self.assert_held(driver, 10, malloc=(2, 0, 200010), realloc=(2, 0, -199500), free=(1, 0, 500))
        driver.free(small)
        self.assertEqual(driver.finish(), 0)
        counts = read_log(self.log_path(driver, "quarl")).stats.counts()
        mapped, unmapped = counts["chunk map"], counts["chunk unmap"]
        self.assertEqual((counts["mmap"], counts["munmap"]), (mapped, unmapped))
        self.assertEqual(mapped[2] % PAGE, 0)

    def test_mappings(self):
        (self.directory / "file").write_bytes(b"x" * 10000)
        driver = self.driver("QUARL_PRINT_PROFINFO=1")
        descriptor = driver.open("file", 0)
        anonymous = driver.do(f"mmap 0 {3 * PAGE} {ANONYMOUS}")
        mapped = driver.do(f"mmap 0 10000 1 2 {descriptor} 0")
        driver.do("mmap 0 0 1 2 -1 0")
        driver.do(f"mmap 0 0 1 2 {descriptor} 0")
        expected = dict(mmap=(2, 1, 3 * PAGE), mmap_file=(2, 1, 10000), peak=3 * PAGE, file_peak=10000)
        self.assert_table(driver, size=3 * PAGE, file_size=10000, **expected)
        driver.munmap(anonymous + 2 * PAGE, PAGE)  # the end of it counts as all of it
        driver.munmap(mapped, 10000)
        driver.munmap(1, PAGE)
        self.assert_table(driver, munmap=(2, 1, 3 * PAGE), munmap_file=(1, 0, 10000), **expected)
        driver.kill()

    def test_each_thread_has_its_own_counters(self):
        driver = self.driver("QUARL_ALL=1 QUARL_PROF=1 QUARL_THREAD=1 QUARL_SLOPOVER_EXIT=0")
        first, second = driver.spawn(), driver.spawn()
        block = first.malloc(100)
        grown = first.realloc(block, 104)
        first.realloc(grown, 10)
        mine = second.malloc(1000)
        second.free(first.malloc(5))
        second.malloc(0)
        first.realloc(mine, 0)
        self.assertEqual(driver.finish(), 0)
        log = read_log(self.log_path(driver, "quarl"))
        self.assertEqual(log.thread_flag, 2)
        one, two = log.threads[first.tid], log.threads[second.tid]
        self.assertEqual(one.counts(), {"malloc": (2, 0, 105), "realloc": (3, 0, 114), "realloc release": (3, 0, 1204)})
        self.assertEqual(two.counts(), {"malloc": (2, 1, 1000), "free": (1, 0, 5)})
        self.assertEqual((one.shrink, two.shrink), (2, 0))
        self.assertEqual((one.held, two.held), (105 + 114 - 1204 & 0xFFFFFFFF, 995))
        self.assertEqual(one.name, self.target.process_name("driver"))
        for operation in ("malloc", "free", "realloc", "realloc release"):
            sums = [sum(column) for column in zip(*(t.counts().get(operation, (0, 0, 0)) for t in log.threads.values()))]
            self.assertEqual(tuple(sums), log.stats.counts()[operation])

    def test_more_threads_than_entries(self):
        driver = self.driver("QUARL_ALL=1 QUARL_PROF=1 QUARL_THREAD=1 QUARL_OUTPUT_LOG=1")
        driver.malloc(1)
        workers = [driver.spawn() for _ in range(201)]
        for worker in workers:
            worker.malloc(16)
        # the main thread has an entry, so two workers have none
        self.assertEqual(driver.finish(), 0)
        self.assertEqual(driver.err, "Exceed max thread num\n" * 2)
        log = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual(len(log.threads), 200)
        self.assertEqual([log.threads[worker.tid].counts() for worker in workers[:199]], [{"malloc": (1, 0, 16)}] * 199)

    def test_statistics_that_are_off(self):
        driver = self.driver("QUARL_PROF=0 QUARL_PRINT_PROFINFO=1")
        driver.malloc(100)
        self.assertEqual(driver.malloc(0).number, 0)
        self.assert_ends(driver)
        self.assertEqual(read_log(self.log_path(driver, "quarl")).stats.counts(), {})

    def test_dump_and_exit_print_the_same_lines(self):
        for config, kind in (("", "quarl"), ("QUARL_OUTPUT_LOG=1", "quarlAll")):
            driver = self.driver("QUARL_PRINT_PROFINFO=1 " + config)
            block = driver.malloc(60)
            table = statistics(malloc=(1, 0, 60), size=60, peak=60)
            end = saved(self.log_path(driver, kind))
            dump = table + ("" if config else histogram([60])) + end
            self.assertEqual(self.printed(driver), dump)
            driver.free(block)
            last = statistics(malloc=(1, 0, 60), free=(1, 0, 60), peak=60) + ("" if config else histogram([]))
            self.assert_ends(driver, dump + last)


if __name__ == "__main__":
    case.main()
