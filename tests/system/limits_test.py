# SPDX-License-Identifier: Apache-2.0
"""Failures made on purpose, and limits that stop a thread."""

import signal

import case
from log_file import FAILED, read_log
from report_text import exit_line

LOG = "QUARL_ALL=1 QUARL_PROF=1 "


class RandomFailure(case.Case):
    def test_one_call_in_seven_fails_as_out_of_memory(self):
        driver = self.driver(LOG + "QUARL_RANDOM_FAIL=1 QUARL_OUTPUT_LOG=1")
        for command in ("malloc 10", "memalign 16 10", "realloc 0 10", "calloc 1 10"):
            driver.repeat(1400, command)
        kept = next(block for _ in range(100) if (block := driver.malloc(10)))
        for size in range(1, 300):  # only a first allocation may fail, never a resize, a release or a mapping
            kept = driver.realloc(kept, size)
            self.assertNotEqual(kept, 0)
        failed = next(answer for _ in range(300) if not (answer := driver.malloc(1)))
        self.assertEqual(failed.number, 12)
        self.assertEqual(driver.finish(), 0)
        log = read_log(self.log_path(driver, "quarlAll"))
        failures = [record for record in log.records if record.kind == FAILED]
        self.assertEqual({(record.address, record.operation) for record in failures}, {(0, 0), (0, 1), (0, 4)})
        counts = log.stats.counts()
        for operation, calls in (("malloc", 2800), ("memalign", 1400), ("realloc", 1400)):
            failed = counts[operation][1]
            self.assertEqual(failed, sum(record.brief()[0] == operation for record in failures))
            self.assertTrue(calls / 10 < failed < calls / 5, (operation, failed))

    def test_each_process_fails_in_an_order_of_its_own(self):
        """The random numbers are seeded once: a reload does not begin them anew."""
        def failures(driver):
            return [driver.malloc(10) == 0 for _ in range(200)]
        config = LOG + "QUARL_RANDOM_FAIL=1"
        one, two = self.driver(config), self.driver(config)
        begin = failures(one)
        self.assertNotEqual(failures(two), begin)
        one.do(f"raise {signal.SIGUSR1}")
        self.assertNotEqual(failures(one), begin)
        for driver in (one, two):
            self.assert_ends(driver)

    def test_without_statistics_or_switched_off_nothing_fails(self):
        for config in ("QUARL_ALL=1 QUARL_PROF=0 QUARL_RANDOM_FAIL=1", LOG + "QUARL_RANDOM_FAIL=1 QUARL_RANDOM_FAIL=0"):
            driver = self.driver(config + " QUARL_OUTPUT_LOG=1")
            driver.repeat(300, "malloc 10")
            self.assertEqual(driver.finish(), 0)
            records = read_log(self.log_path(driver, "quarlAll")).records
            self.assertEqual([record.kind for record in records], [1] * 300)


class Limits(case.Case):
    def test_request_over_a_limit_stops_its_thread_only(self):
        for item, limit, use in (("QUARL_HEAP_LIMIT", "heap_limit", None), ("QUARL_STACK_LIMIT", "stack_limit", "stack_use")):
            for command in ("malloc 1001", "memalign 16 1001", "realloc 0 1001", "realloc {block} 1001", "calloc 7 143"):
                with self.subTest(item, command=command):
                    driver = self.driver(f"{LOG} {item}=1 QUARL_OUTPUT_LOG=1")
                    worker = driver.spawn()
                    block = driver.malloc(500)
                    driver.do(f"raise {signal.SIGUSR1}")
                    held = read_log(self.log_path(driver, "quarlAll")).stats.held
                    driver.write(limit, held + 1000)
                    if use:
                        driver.write(use, held)
                    worker.free(worker.malloc(1000))  # up to the limit is fine
                    self.assertEqual(driver.malloc(0xFFFFFFFF - held + 1), 0)  # the sum wraps: not the limit's business
                    worker.send(command.format(block=block))
                    driver.release(worker.tid)
                    driver.await_match("exit!!\n")
                    driver.free(block)
                    self.assert_ends(driver, exit_line(worker.tid))
                    log = read_log(self.log_path(driver, "quarlAll"))
                    self.assertNotIn(1001, [record.size for record in log.records])

    def test_initial_limits_stop_nothing(self):
        driver = self.driver(LOG + "QUARL_HEAP_LIMIT=1 QUARL_STACK_LIMIT=1")
        self.assertNotEqual(driver.malloc(50_000_000), 0)
        self.assertEqual(driver.malloc(0xFFFFFFFF), 0)
        self.assert_ends(driver)


if __name__ == "__main__":
    case.main()
