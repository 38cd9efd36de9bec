# SPDX-License-Identifier: Apache-2.0
"""The configuration file: how its lines are read, which value stays, and what each value does to a block."""

import signal

import case
from header import read_header
from promise import promise

ALL_PARTS = "TSICG"


class Lines(case.Case):
    @promise("Messages go to descriptor 1 (a few to 2), each with one `write`, past the application's stdio.")
    def test_messages_about_lines(self):
        unknown, torn = "Item {} is not support\n".format, "Err item {}\n".format
        cases = [
            ("quarl_all=0\n", unknown("quarl_all")),
            ("QUARL_ALLX=0\n", unknown("QUARL_ALLX")),
            ("K" * 32 + "=1 # text\n", unknown("K" * 32 + "=1 # text")),
            ("K" * 31 + "=1\n", unknown("K" * 31)),
            ("QUARL_HEAD_TID=" + "0" * 16 + "\n", unknown("QUARL_HEAD_TID")),
            ("QUARL_HEAD_TID==0\n", unknown("QUARL_HEAD_TID")),
            ("QUARL_HEAD_TID= #0\n", unknown("QUARL_HEAD_TID")),
            ("=0\n", unknown("")),
            ("QUARL_HEAD_TID 0\n", torn("QUARL_HEAD_TID")),
            (" \tQUARL_HEAD_TID = \t \n", torn("QUARL_HEAD_TID")),
            ("   \n", torn("")),
            ("# QUARL_HEAD_TID=0\n \t#nothing\n\n\r\n", ""),
            ("unfinished last line", ""),
            ("#" + "k" * 199 + "\n", unknown("k" * 127)),
        ]
        for text, message in cases:
            with self.subTest(text):
                (self.directory / "quarlcfg.ini").write_text(text)
                driver = self.driver()
                self.assertEqual(read_header(driver, driver.malloc(10)).items(), ALL_PARTS)
                self.assert_ends(driver, "", message)

    def test_lines_that_take_effect(self):
        long = "x" * 73 + " " * (127 - len("QUARL_HEAD_TID=0")) + "QUARL_HEAD_TID=0\n"
        cases = [
            ("QUARL_HEAD_TID=0\n", "SICG"),
            (" \tQUARL_HEAD_TID\t and more = \t0#comment\n", "SICG"),
            ("QUARL_HEAD_TID=0 1\r\nQUARL_HEAD_TIME=off\r\n", "ICG"),
            (long, "SICG"),
            (" " * 111 + "QUARL_HEAD_TID=0\n", "SICG"),
            ("QUARL_HEAD_TID=1x\nQUARL_HEAD_TIME=10\n", ALL_PARTS),
            ("QUARL_HEAD_TID=" + "0" * 15 + "\n", "SICG"),
            ("QUARL_HEAD_TID=0\nQUARL_HEAD_TID=1\n", ALL_PARTS),  # may be set again: the last one
            ("QUARL_SLOPOVER=0\nQUARL_SLOPOVER=1\n", "TSIC"),  # only once: the first one
            ("QUARL_HEAD_TID=0\nQUARL_HEAD_TIME=0", "SICG"),
            ("QUARL_HEAD_STACKDEPTH=65\n", "TSG"),
            ("QUARL_HEAD_STACKDEPTH=-3\n", "TSG"),
            ("QUARL_HEAD_STACKDEPTH=64\n", ALL_PARTS),
        ]
        for text, parts in cases:
            with self.subTest(text):
                (self.directory / "quarlcfg.ini").write_text(text)
                driver = self.driver()
                self.assertEqual(read_header(driver, driver.malloc(10)).items(), parts)
                self.assert_ends(driver)

    def test_where_the_file_is_looked_for(self):
        other = self.directory / "other.cfg"
        other.write_text("QUARL_HEAD_TID=0\n")
        self.configure("QUARL_HEAD_TIME=0")
        for path, parts in ((None, "TICG"), (other, "SICG"), ("missing.cfg", ALL_PARTS)):
            driver = self.driver(environment={"QUARL_CFG_FILE": str(path)} if path else {})
            self.assertEqual(read_header(driver, driver.malloc(10)).items(), parts)
            self.assert_ends(driver)


class Items(case.Case):
    def test_switches_take_the_header_away(self):
        for config in ("QUARL_ALL=0", "QUARL_MEM_HEAD=0"):
            driver = self.driver(config)
            block = driver.malloc(10)
            self.assertNotEqual(driver.word(block - 4) & ~3, block)
            driver.free(driver.realloc(block, 100000))
            self.assertEqual(self.files(), [])
            self.assert_ends(driver)

    def test_numbers_and_signals_in_the_exported_words(self):
        cases = [("QUARL_TIMER_SIG=SIGUSR2", "qr_sig_num", 12), ("QUARL_TIMER_SIG=1", "qr_sig_num", 14),
                 ("QUARL_TIMER_SIG=SIGHUP", "qr_sig_num", 14), ("QUARL_TIMER_SIG=nonsense", "qr_sig_num", 14),
                 ("QUARL_TIMER_SIG=SIG44", "qr_sig_num", 44), ("QUARL_TIMER_SIG=41x", "qr_sig_num", 41),
                 ("QUARL_TIMER_SIG=SIGSYS", "qr_sig_num", 31), ("QUARL_TIMER_SIG=SIGSTKFLT", "qr_sig_num", 14),
                 ("QUARL_MMAP=0", "QR_TRACE_MMAP", 0), ("QUARL_MMAP=1", "QR_TRACE_MMAP", 1),
                 ("", "QR_PAGE_NUM", 4), ("", "QR_PAGE_SIZE", 4096), ("", "QR_TRACEINFO_NUM", 56),
                 ("", "heap_limit", 0xFFFFFFFF), ("", "stack_limit", 0xFFFFFFFF), ("", "stack_use", 0),
                 ("", "srv_desc", 0xFFFFFFFF), ("", "recv_buffer", 0)]
        for config, symbol, value in cases:
            with self.subTest(config + " " + symbol):
                driver = self.driver(config)
                self.assertEqual(driver.read(symbol), value)
                self.assert_ends(driver)

    def test_every_signal_has_its_name(self):
        unknown = {"SIGSTKFLT", "SIGRTMIN", "SIGRTMAX"}  # and the first signal is the default
        numbers = {each.name: int(each) for each in signal.Signals if each > 1 and each.name not in unknown}
        self.assertEqual(len(numbers), 29)
        numbers |= {"SIG31": 14, "SIG32": 32, "SIG128": 128, "SIG129": 14, "SIG040": 14, "31": 31}
        for name, number in numbers.items():
            with self.subTest(name):
                driver = self.driver("QUARL_TIMER_SIG=" + name)
                self.assertEqual(driver.read("qr_sig_num"), number)
                self.assert_ends(driver)

    def test_items_that_depend_on_others(self):
        refused = "Can not set thread type.For the PROF function is not set.\n"
        no_clock = "Get time function is invalid, can not get snapshot info of memory automatically!\n"
        cases = [("QUARL_ALL=1 QUARL_THREAD=1", refused, True), ("QUARL_THREAD=1", "", True),
                 ("QUARL_ALL=1 QUARL_PROF=1 QUARL_THREAD=1", "", True),
                 ("QUARL_SNAP_INTERVAL=0", "", True), ("QUARL_SNAP_INTERVAL=-1", "", True),
                 ("QUARL_SNAP_INTERVAL=5", no_clock, False), ("QUARL_HEAD_TIME=1 QUARL_SNAP_INTERVAL=5", no_clock, False),
                 ("QUARL_SNAP_INTERVAL=5 QUARL_NONE=1 QUARL_THREAD=1", no_clock, False)]  # nothing behind it is applied
        for config, out, starts in cases:
            with self.subTest(config):
                before = len(self.files())
                process = self.run_victim("frames_omitted", config=config)
                self.assert_ends(process, out)
                self.assertEqual((bool(process.text["said"]), len(self.files()) > before), (starts, starts))

    def test_log_names(self):
        for config, prefix in (("QUARL_OUTPUT_LOG=1", ""), ("QUARL_OUTPUT_LOG=1 QUARL_LOG_FILENAME=1", ""),
                               ("QUARL_LOG_FILENAME=run QUARL_OUTPUT_LOG=1 QUARL_LOG_FILENAME=two", "run_")):
            driver = self.driver(config)
            self.assertEqual(self.files(), [self.log_path(driver, "quarlAll", prefix).name])
            self.assert_ends(driver)
            self.log_path(driver, "quarlAll", prefix).unlink()


class Headers(case.Case):
    def test_layout_follows_the_items_and_the_operation(self):
        parts = {"QUARL_HEAD_TID": "T", "QUARL_HEAD_TIME": "S", "QUARL_HEAD_STACKDEPTH": "C", "QUARL_SLOPOVER": "G"}
        for mask in range(16):
            chosen = {key: mask >> i & 1 for i, key in enumerate(parts)}
            driver = self.driver("".join(f"{key}={value} " for key, value in chosen.items()))
            made = {0: driver.malloc(100), 1: driver.realloc(0, 100), 4: driver.memalign(16, 100)}
            for sequence, (operation, block) in enumerate(made.items(), 1):
                with self.subTest(chosen, operation=operation):
                    header = read_header(driver, block)
                    expected = {parts[key] for key, value in chosen.items() if value}
                    if operation or "C" in expected:
                        expected.add("I")
                    self.assertEqual(set(header.items()), expected)
                    self.assertEqual(header.tid, driver.pid if "T" in expected else None)
                    self.assertEqual((header.seq_num, header.time), (sequence, 0) if "S" in expected else (None, None))
                    if "I" in expected:
                        self.assertEqual((header.operation, header.align_log2), (operation, 4 if operation == 4 else 3))
                    self.assertEqual(header.size, 100)
            self.assertEqual([read_header(driver, block).next for block in made.values()], [made[1], made[4], 0])
            self.assertEqual([read_header(driver, block).prev for block in made.values()], [0, made[0], made[1]])
            driver.free(made[1])
            self.assertEqual(driver.word(made[1] - 4), 0xD8675309)
            self.assertEqual((read_header(driver, made[0]).next, read_header(driver, made[4]).prev), (made[4], made[0]))
            self.assert_ends(driver)


if __name__ == "__main__":
    case.main()
