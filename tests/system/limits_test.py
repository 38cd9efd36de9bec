"""Failures made on purpose, and limits that stop a thread."""

import signal

import case
from log_file import FAILED, read_log
from report_text import exit_line

LOG = "QUARL_ALL=1 QUARL_PROF=1 "


class RandomFailure(case.Case):
    def test_one_call_in_seven_fails_as_out_of_memory(self):
        puppet = self.puppet(LOG + "QUARL_RANDOM_FAIL=1 QUARL_OUTPUT_LOG=1")
        for command in ("malloc 10", "memalign 16 10", "realloc 0 10", "calloc 1 10"):
            puppet.repeat(1400, command)
        kept = next(block for _ in range(100) if (block := puppet.malloc(10)))
        for size in range(1, 300):  # only a first allocation may fail, never a resize, a release or a mapping
            kept = puppet.realloc(kept, size)
            self.assertNotEqual(kept, 0)
        failed = next(answer for _ in range(300) if not (answer := puppet.malloc(1)))
        self.assertEqual(failed.number, 12)
        self.assertEqual(puppet.finish(), 0)
        log = read_log(self.log_path(puppet, "quarlAll"))
        failures = [record for record in log.records if record.kind == FAILED]
        self.assertEqual({(record.address, record.operation) for record in failures}, {(0, 0), (0, 1), (0, 4)})
        counts = log.stats.counts()
        for operation, calls in (("malloc", 2800), ("memalign", 1400), ("realloc", 1400)):
            failed = counts[operation][1]
            self.assertEqual(failed, sum(record.brief()[0] == operation for record in failures))
            self.assertTrue(calls / 10 < failed < calls / 5, (operation, failed))

    def test_without_statistics_or_switched_off_nothing_fails(self):
        for config in ("QUARL_ALL=1 QUARL_PROF=0 QUARL_RANDOM_FAIL=1", LOG + "QUARL_RANDOM_FAIL=1 QUARL_RANDOM_FAIL=0"):
            puppet = self.puppet(config + " QUARL_OUTPUT_LOG=1")
            puppet.repeat(300, "malloc 10")
            self.assertEqual(puppet.finish(), 0)
            records = read_log(self.log_path(puppet, "quarlAll")).records
            self.assertEqual([record.kind for record in records], [1] * 300)


class Limits(case.Case):
    def test_request_over_a_limit_stops_its_thread_only(self):
        for item, limit, use in (("QUARL_HEAP_LIMIT", "heap_limit", None), ("QUARL_STACK_LIMIT", "stack_limit", "stack_use")):
            for command in ("malloc 1001", "memalign 16 1001", "realloc 0 1001", "realloc {block} 1001", "calloc 7 143"):
                with self.subTest(item, command=command):
                    puppet = self.puppet(f"{LOG} {item}=1 QUARL_OUTPUT_LOG=1")
                    worker = puppet.spawn()
                    block = puppet.malloc(500)
                    puppet.do(f"raise {signal.SIGUSR1}")
                    held = read_log(self.log_path(puppet, "quarlAll")).stats.held
                    puppet.write(limit, held + 1000)
                    if use:
                        puppet.write(use, held)
                    worker.free(worker.malloc(1000))  # up to the limit is fine
                    self.assertEqual(puppet.malloc(0xFFFFFFFF - held + 1), 0)  # the sum wraps: not the limit's business
                    worker.send(command.format(block=block))
                    puppet.release(worker.tid)
                    puppet.await_match("exit!!\n")
                    puppet.free(block)
                    self.assert_ends(puppet, exit_line(worker.tid))
                    log = read_log(self.log_path(puppet, "quarlAll"))
                    self.assertNotIn(1001, [record.size for record in log.records])

    def test_initial_limits_stop_nothing(self):
        puppet = self.puppet(LOG + "QUARL_HEAP_LIMIT=1 QUARL_STACK_LIMIT=1")
        self.assertNotEqual(puppet.malloc(50_000_000), 0)
        self.assertEqual(puppet.malloc(0xFFFFFFFF), 0)
        self.assert_ends(puppet)


if __name__ == "__main__":
    case.main()
