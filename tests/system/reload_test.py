# SPDX-License-Identifier: Apache-2.0
"""New configuration by signal: in force at the next call, while blocks keep the layout that they were made with."""

import signal

import case
from header import read_header
from report_text import take_reports

LAYOUTS = ["QUARL_HEAD_TID=1 QUARL_HEAD_TIME=1 QUARL_HEAD_STACKDEPTH=8",
           "QUARL_HEAD_TID=0 QUARL_HEAD_TIME=0 QUARL_HEAD_STACKDEPTH=0",
           "QUARL_HEAD_TID=1 QUARL_HEAD_TIME=0 QUARL_HEAD_STACKDEPTH=64",
           "QUARL_MEM_HEAD=0",
           "QUARL_ALL=0"]
SWITCHED_ON = "QUARL_ALL=1 QUARL_MEM_HEAD=1 "


class Reload(case.Case):
    def reload(self, driver, config):
        self.configure(config)
        driver.do(f"raise {signal.SIGUSR1}")

    def test_new_file_is_in_force_at_the_next_call(self):
        driver = self.driver("QUARL_PRINT_PROFINFO=0")
        for call in ("malloc 10", "realloc 0 10", "memalign 32 10", "calloc 2 5"):
            for config, parts in (("QUARL_HEAD_TID=0", "SICG"), ("QUARL_HEAD_TID=1", "TSICG")):
                with self.subTest(call, config=config):
                    self.reload(driver, config)
                    self.assertEqual(read_header(driver, driver.do(call)).items(), parts)
        for call in ("free 0", "munmap 0 0", "mmap 0 0 0 0 0 0"):
            for config, parts in (("QUARL_HEAD_TID=0", "SICG"), ("QUARL_HEAD_TID=1", "TSICG")):
                self.reload(driver, config)
                driver.do(call)
                (self.directory / "quarlcfg.ini").write_text("QUARL_HEAD_TIME=0\n")  # too late: read by that call
                self.assertEqual(read_header(driver, driver.malloc(10)).items(), parts)
        self.assert_ends(driver)

    def test_blocks_keep_their_layout_in_every_operation(self):
        """Blocks made under each layout are checked, resized up and down, and released under every other."""
        for before in LAYOUTS[:3]:
            for after in LAYOUTS:
                with self.subTest(before, after=after):
                    driver = self.driver(SWITCHED_ON + before)
                    blocks = [driver.malloc(100), driver.memalign(64, 100), driver.realloc(0, 100), driver.malloc(200000)]
                    spare = driver.malloc(24)
                    for block in blocks:
                        driver.fill(block, 0xA5, 100)
                    self.reload(driver, SWITCHED_ON + after if after.startswith("QUARL_HEAD") else after)
                    driver.free(spare)
                    driver.check()
                    kept = 100
                    for size in (101, 5000, 40, 300000, 64):
                        blocks = [driver.realloc(block, size) for block in blocks]
                        kept = min(kept, size)
                        for index, block in enumerate(blocks):
                            self.assertEqual(driver.holds(block, 0xA5, kept), 1, (size, index))
                            self.assertEqual(block % 8, 0)
                        driver.check()
                    for block in blocks:
                        driver.fill(block, 0x5A, 64)  # all of it
                        driver.free(block)
                    self.assertEqual(driver.holds(driver.calloc(100, 10), 0, 1000), 1)
                    self.assert_ends(driver)

    def test_report_of_a_block_made_under_another_layout(self):
        driver = self.driver(SWITCHED_ON + LAYOUTS[0] + " QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        block = driver.malloc(100)
        old = read_header(driver, block)
        self.reload(driver, SWITCHED_ON + LAYOUTS[1])
        driver.free(0)
        driver.fill(block + 100, 0, 1)
        driver.check()
        [report], rest = take_reports(driver.out)
        self.assertEqual((report.tid, report.seq_num, report.trace, rest), (old.tid, old.seq_num, old.trace, ""))
        self.assert_ends(driver, driver.out)

    def test_request_waits_while_everything_is_off(self):
        driver = self.driver("QUARL_ALL=0")
        self.reload(driver, "QUARL_ALL=1")
        block = driver.malloc(10)
        self.assertNotEqual(driver.word(block - 4) & ~3, block)
        self.assert_ends(driver)

    def test_logs_are_opened_and_the_signal_can_be_chosen(self):
        driver = self.driver("QUARL_SIG=SIGUSR2 QUARL_SIG=SIGHUP")
        snapshot = self.log_path(driver, "quarl")
        self.assertEqual(self.files(), [snapshot.name])
        self.configure("QUARL_OUTPUT_LOG=1")
        driver.do(f"raise {signal.SIGUSR2}")
        self.assertEqual(self.files(), [snapshot.name])
        driver.malloc(1)
        self.assertEqual(self.files(), [snapshot.name, self.log_path(driver, "quarlAll").name])
        self.assert_ends(driver)

    def test_signal_from_outside_while_idle_and_missing_file(self):
        driver = self.driver("QUARL_HEAD_TID=0 QUARL_PRINT_PROFINFO=1")
        (self.directory / "quarlcfg.ini").unlink()
        driver.signal(signal.SIGUSR1)
        driver.await_match(r"Log info has been saved to log file [\w-]+_\d+_quarl\.log\.\n")
        self.assertEqual(read_header(driver, driver.malloc(10)).items(), "SICG")  # nothing changed
        driver.kill()


if __name__ == "__main__":
    case.main()
