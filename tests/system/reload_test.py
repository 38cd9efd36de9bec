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
    def reload(self, puppet, config):
        self.configure(config)
        puppet.do(f"raise {signal.SIGUSR1}")

    def test_new_file_is_in_force_at_the_next_call(self):
        puppet = self.puppet("QUARL_PRINT_PROFINFO=0")
        for call in ("malloc 10", "realloc 0 10", "memalign 32 10", "calloc 2 5"):
            for config, parts in (("QUARL_HEAD_TID=0", "SICG"), ("QUARL_HEAD_TID=1", "TSICG")):
                with self.subTest(call, config=config):
                    self.reload(puppet, config)
                    self.assertEqual(read_header(puppet, puppet.do(call)).items(), parts)
        for call in ("free 0", "munmap 0 0", "mmap 0 0 0 0 0 0"):
            for config, parts in (("QUARL_HEAD_TID=0", "SICG"), ("QUARL_HEAD_TID=1", "TSICG")):
                self.reload(puppet, config)
                puppet.do(call)
                (self.directory / "quarlcfg.ini").write_text("QUARL_HEAD_TIME=0\n")  # too late: read by that call
                self.assertEqual(read_header(puppet, puppet.malloc(10)).items(), parts)
        self.assert_ends(puppet)

    def test_blocks_keep_their_layout_in_every_operation(self):
        """Blocks made under each layout are checked, resized up and down, and released under every other."""
        for before in LAYOUTS[:3]:
            for after in LAYOUTS:
                with self.subTest(before, after=after):
                    puppet = self.puppet(SWITCHED_ON + before)
                    blocks = [puppet.malloc(100), puppet.memalign(64, 100), puppet.realloc(0, 100), puppet.malloc(200000)]
                    spare = puppet.malloc(24)
                    for block in blocks:
                        puppet.fill(block, 0xA5, 100)
                    self.reload(puppet, SWITCHED_ON + after if after.startswith("QUARL_HEAD") else after)
                    puppet.free(spare)
                    puppet.check()
                    kept = 100
                    for size in (101, 5000, 40, 300000, 64):
                        blocks = [puppet.realloc(block, size) for block in blocks]
                        kept = min(kept, size)
                        for index, block in enumerate(blocks):
                            self.assertEqual(puppet.holds(block, 0xA5, kept), 1, (size, index))
                            self.assertEqual(block % 8, 0)
                        puppet.check()
                    for block in blocks:
                        puppet.fill(block, 0x5A, 64)  # all of it
                        puppet.free(block)
                    self.assertEqual(puppet.holds(puppet.calloc(100, 10), 0, 1000), 1)
                    self.assert_ends(puppet)

    def test_report_of_a_block_made_under_another_layout(self):
        puppet = self.puppet(SWITCHED_ON + LAYOUTS[0] + " QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        block = puppet.malloc(100)
        old = read_header(puppet, block)
        self.reload(puppet, SWITCHED_ON + LAYOUTS[1])
        puppet.free(0)
        puppet.fill(block + 100, 0, 1)
        puppet.check()
        [report], rest = take_reports(puppet.out)
        self.assertEqual((report.tid, report.seq_num, report.trace, rest), (old.tid, old.seq_num, old.trace, ""))
        self.assert_ends(puppet, puppet.out)

    def test_request_waits_while_everything_is_off(self):
        puppet = self.puppet("QUARL_ALL=0")
        self.reload(puppet, "QUARL_ALL=1")
        block = puppet.malloc(10)
        self.assertNotEqual(puppet.word(block - 4) & ~3, block)
        self.assert_ends(puppet)

    def test_logs_are_opened_and_the_signal_can_be_chosen(self):
        puppet = self.puppet("QUARL_SIG=SIGUSR2 QUARL_SIG=SIGHUP")
        snapshot = self.log_path(puppet, "quarl")
        self.assertEqual(self.files(), [snapshot.name])
        self.configure("QUARL_OUTPUT_LOG=1")
        puppet.do(f"raise {signal.SIGUSR2}")
        self.assertEqual(self.files(), [snapshot.name])
        puppet.malloc(1)
        self.assertEqual(self.files(), [snapshot.name, self.log_path(puppet, "quarlAll").name])
        self.assert_ends(puppet)

    def test_signal_from_outside_while_idle_and_missing_file(self):
        puppet = self.puppet("QUARL_HEAD_TID=0 QUARL_PRINT_PROFINFO=1")
        (self.directory / "quarlcfg.ini").unlink()
        puppet.signal(signal.SIGUSR1)
        puppet.await_match(r"Log info has been saved to log file [\w-]+_\d+_quarl\.log\.\n")
        self.assertEqual(read_header(puppet, puppet.malloc(10)).items(), "SICG")  # nothing changed
        puppet.kill()


if __name__ == "__main__":
    case.main()
