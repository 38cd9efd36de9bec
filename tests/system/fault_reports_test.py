# SPDX-License-Identifier: Apache-2.0
"""One damaged block, one report: what is printed to the byte, who is stopped, and how the process goes on."""

import case
from promise import promise
from report_text import double_free, exit_line, take_reports


# Neither the check nor the snapshot at exit repeats what was reported.
QUIET_END = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0 "


class FaultReports(case.Case):
    def check(self, report, **expected):
        for field, value in expected.items():
            self.assertEqual(getattr(report, field), value, field)

    @promise("A thread that a fault stops prints its report first.")
    def test_second_release_is_reported_and_the_thread_ends_on_signal_60(self):
        for victim in ("double_free", "freed_realloc"):
            with self.subTest(victim):
                process = self.run_victim(victim)
                text = double_free(process.said("block")[0])
                process.await_match("\n")
                process.release()
                self.assert_ends(process, text + exit_line(process.pid))

    @promise("A thread that a fault stops prints its report first.")
    def test_overrun_stops_the_releasing_thread_and_is_found_again_at_exit(self):
        for victim, kind, size in (("tail_overrun", "tail", 10), ("head_overrun", "head", 40)):
            with self.subTest(victim):
                process = self.run_victim(victim)
                block = process.said("block")[0]
                process.await_match(r"call trace :\n(\d+ : \w+\n)+")
                process.release()
                self.assertEqual(process.finish(), 0)
                [first], rest = take_reports(process.out)
                self.check(first, kind=kind, tid=process.pid, time=None, seq_num=1, operation="malloc", size=size, address=block)
                self.assertTrue(rest.startswith(exit_line(process.pid)), rest)
                again, rest = take_reports(rest[len(exit_line(process.pid)):])
                # once by the check at exit and once by the snapshot
                self.assertEqual((again, rest, process.err), ([first] * 2, "", ""))

    def test_overruns_found_at_exit_leave_the_exit_status_alone(self):
        process = self.run_victim("exit_overrun")
        self.assertEqual(process.finish(), 7)
        blocks = process.said("block")
        reports, rest = take_reports(process.out)
        self.assertEqual((rest, process.err), ("", ""))
        self.assertEqual([(report.address, report.seq_num) for report in reports], [(blocks[0], 1), (blocks[2], 3)] * 2)

    def test_check_on_request_reports_every_time_and_stops_nobody(self):
        process = self.run_victim("api_overrun")
        self.assertEqual(process.finish(), 0)
        reports, rest = take_reports(process.out)
        self.assertEqual((len(reports), rest, process.err), (2, "", ""))
        self.assertEqual(reports[0], reports[1])
        self.check(reports[0], kind="tail", operation="memalign", size=100, address=process.said("block")[0])

    def test_operation_names_and_fields_of_every_kind_of_block(self):
        driver = self.driver(QUIET_END)
        worker = driver.spawn()
        cases = [("malloc", "malloc 33", 33), ("malloc", "calloc 3 7", 21), ("realloc", "realloc 0 12", 12),
                 ("memalign", "memalign 256 65", 65), ("memalign", "posix_memalign 32 1", 1), ("memalign", "valloc 8", 8)]
        for operation, command, size in cases:
            with self.subTest(command):
                block = worker.do(command)
                before = len(driver.out)
                whole = driver.word(block + size)
                for offset in range(4):  # each byte of the guard counts
                    driver.set_word(block + size, whole ^ (0x40 << 8 * offset))
                    driver.check()
                driver.set_word(block + size, whole)
                driver.check()
                self.assertEqual(whole, 0xFEDABEEB)
                reports, rest = take_reports(driver.out[before:])
                self.assertEqual((len(reports), rest), (4, ""))
                for report in reports:
                    self.check(report, kind="tail", tid=worker.tid, operation=operation, size=size, address=block)
        self.assert_ends(driver, driver.out)

    def test_head_report_reads_the_header_by_the_configuration(self):
        for config, depth in (("", 2), ("QUARL_HEAD_STACKDEPTH=0", 0), ("QUARL_HEAD_TID=0", 2), ("QUARL_HEAD_TIME=0", 2)):
            with self.subTest(config):
                driver = self.driver(QUIET_END + config)
                driver.malloc(8)
                block = driver.memalign(64, 20)
                driver.set_word(block - 4, 0x12345678)
                driver.check()
                [report], rest = take_reports(driver.out)
                self.check(report, kind="head", size=20, address=block, tid=0 if "TID" in config else driver.pid,
                           seq_num=0 if "TIME" in config else 2, operation="malloc" if depth == 0 else "memalign")
                self.assertEqual((rest, len(report.trace) >= depth, report.trace == []), ("", True, depth == 0))
                self.assert_ends(driver, driver.out)

    def test_chunk_word_that_disagrees_with_the_header_is_a_head_overrun(self):
        driver = self.driver(QUIET_END + "QUARL_HEAD_TID=0 QUARL_HEAD_TIME=0 QUARL_HEAD_STACKDEPTH=0")
        block = driver.malloc(100)
        chunk = driver.word(block - 20)
        self.assertEqual(driver.word(block - 16), 100)
        for change, found in ((0, 0), (8, 0), (-8, 0), (32, 1), (-24, 1)):
            before = len(driver.out)
            driver.set_word(block - 20, chunk + change)
            driver.check()
            reports, _ = take_reports(driver.out[before:])
            self.assertEqual(len(reports), found, change)
        driver.set_word(block - 20, chunk)
        driver.free(block)
        self.assert_ends(driver, driver.out)

    def test_damage_found_on_the_way_to_an_unknown_pointer(self):
        """A pointer that is no block makes the release walk the list: a broken header on the way stops the thread."""
        driver = self.driver(QUIET_END)
        worker = driver.spawn()
        first, second = driver.malloc(16), driver.malloc(16)
        driver.fill(first + 16, 0, 4)  # a tail overrun on the way is not reported
        driver.set_word(second - 4, 0)
        inner = driver.malloc(64)
        worker.send(f"free {inner + 32}")
        driver.await_match(r"call trace :\n(\d+ : \w+\n)+")
        [report], rest = take_reports(driver.out)
        self.check(report, kind="head", address=second)
        driver.release(worker.tid)
        driver.await_match("exit!!\n")
        self.assertEqual((rest, driver.out[-len(exit_line(worker.tid)):]), ("", exit_line(worker.tid)))
        self.assert_ends(driver, driver.out)

    @promise("The rest of the process runs on.")
    def test_process_runs_on_beside_a_parked_thread(self):
        driver = self.driver(QUIET_END)
        workers = [driver.spawn() for _ in range(3)]
        expected = ""
        for worker in workers:
            block = driver.malloc(50)
            driver.free(block)
            worker.send(f"free {block:#x}")
            expected += double_free(block)
            driver.await_that(lambda: driver.out == expected, "report")
        blocks = [driver.malloc(size) for size in range(1, 200)]  # the lock is free
        for block in blocks:
            driver.free(block)
        driver.release(workers[1].tid)
        expected += exit_line(workers[1].tid)
        driver.await_that(lambda: driver.out == expected, "end of the second worker")
        self.assert_ends(driver, expected)  # two threads still parked

    def test_without_guards_an_overrun_passes_but_not_a_second_release(self):
        driver = self.driver("QUARL_SLOPOVER=0 QUARL_PROF=0")
        worker = driver.spawn()
        block = driver.malloc(50)
        driver.fill(block + 50, 7, 1)
        driver.free(block)
        worker.send(f"realloc {block:#x} 10")
        driver.await_that(lambda: driver.out == double_free(block), "report")
        driver.free(driver.malloc(10))
        self.assert_ends(driver, double_free(block))


if __name__ == "__main__":
    case.main()
