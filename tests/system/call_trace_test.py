# SPDX-License-Identifier: Apache-2.0
"""Call traces: the functions in them, where they end, and that garbage frame pointers only shorten them."""

import case
import log_file
import symbols
from promise import promise
from report_text import take_reports

LOGGED = "QUARL_OUTPUT_LOG=1"
CALLERS = ["malloc", "innermost", "middle", "outer"]


class CallTrace(case.Case):
    def trace_of(self, victim, *arguments, config=LOGGED):
        """The function names in the report of the damaged block, which the log's record repeats."""
        process = self.run_victim(victim, *arguments, config=config)
        self.assertEqual(process.finish(), 0)
        [report], _ = take_reports(process.out)
        self.assertEqual(report.address, process.said("block")[0])
        log = log_file.read_log(self.log_path(process, "quarlAll", program=victim))
        made = [record for record in log.records if record.address == report.address]
        self.assertEqual([record.kind for record in made], [log_file.ALLOCATED, log_file.SLOP_TAIL])
        self.assertEqual([list(record.trace) for record in made], [report.trace] * 2)
        return symbols.names(self.target, log, report.trace)

    @promise("A trace holds what the chain of frame pointers tells.")
    def test_trace_leads_from_the_allocation_to_main(self):
        for victim in ("deep_calls", "deep_calls_fixed"):
            with self.subTest(victim):
                self.assertEqual(self.trace_of(victim), CALLERS + ["main"])

    def test_trace_of_a_thread_leads_through_its_body(self):
        trace = self.trace_of("deep_calls", "thread")
        self.assertEqual(trace[:5], CALLERS + ["thread_body"])

    def test_mapping_of_a_large_block_leaves_room_for_its_callers(self):
        """At most four frames of the checker's before the application's entry: eight are recorded."""
        driver = self.driver(LOGGED)
        large = driver.realloc(driver.malloc(200000), 5000000)
        driver.free(large)
        for block in (driver.calloc(1, 300000), driver.memalign(64, 300000)):
            driver.free(block)
        self.assert_ends(driver)
        log = log_file.read_log(self.log_path(driver, "quarlAll"))
        traces = [symbols.names(self.target, log, record.trace) for record in log.records if record.operation in (5, 6)]
        entries = ["malloc", "realloc", "realloc", "free", "calloc", "memalign", "free", "free"]
        self.assertEqual([trace[trace.index("run_commands") - 2:] for trace in traces],
                         [[entry, f"do_{entry}", "run_commands", "main"] for entry in entries])

    def test_depth_cuts_the_trace(self):
        for depth, expected in ((2, CALLERS[:2]), (3, CALLERS[:3]), (64, CALLERS + ["main"]), (65, []), (0, [])):
            with self.subTest(depth):
                self.assertEqual(self.trace_of("deep_calls", config=f"{LOGGED} QUARL_HEAD_STACKDEPTH={depth}"), expected)

    def deep_trace(self, *arguments, status=0):
        """The functions that lead to the block that is made more than a page below its caller's caller."""
        process = self.run_victim("alternate_stack", *arguments, config=LOGGED)
        self.assert_ends(process, status=status)
        log = log_file.read_log(self.log_path(process, "quarlAll", program="alternate_stack"))
        [trace] = {record.trace for record in log.records if record.size == 77}
        self.assertLessEqual(len(trace), 4)  # with the code by which the kernel calls a handler, and nothing of main's stack
        return [symbols.function_of(self.target, log, address) for address in trace[:3]]

    @promise("A trace holds what the chain of frame pointers tells.")
    def test_alternate_signal_stack_is_followed(self):
        self.assertEqual(self.deep_trace(status=5), ["malloc", "allocate_deep", "handler"])

    @promise("On stacks of unknown origin (coroutines) it ends within a page.")
    def test_stack_of_unknown_origin_is_followed_within_a_page(self):
        self.assertIn(self.deep_trace("coroutine"), (["malloc"], ["malloc", "allocate_deep"]))

    @promise("Code of a library loaded late is recognised at its first appearance, or at one of the next where "
             "garbage in frame pointers came before it.")
    def test_late_library_is_recognised(self):
        """On ARM the loader itself leaves garbage; elsewhere the first trace is whole."""
        driver = self.driver(LOGGED)
        driver.malloc(10)
        self.assertNotEqual(driver.dlopen(self.target.build / "victims" / "liblate.so"), 0)
        function = driver.symbol("late_allocation")
        driver.do(f"repeat 20 call {function:#x}")
        self.assert_ends(driver)
        log = log_file.read_log(self.log_path(driver, "quarlAll"))
        made = [record.trace for record in log.records if record.size == 4321 and record.kind == log_file.ALLOCATED]
        whole = [len(trace) > 2 and function < trace[2] < function + 100 for trace in made]
        self.assertEqual((len(whole), whole, whole[-1]), (20, sorted(whole), True))  # once known, always known
        trace = symbols.names(self.target, log, made[-1])
        self.assertEqual((trace[:4], trace[-1]), (["malloc", "late_helper", "late_allocation", "do_call"], "main"))
        self.assertTrue(whole[0] or self.target.emulated)

    @promise("It never leaves the thread's stack and follows only addresses of code, so binaries without frame "
             "pointers give short traces and never a crash.")
    def test_garbage_frame_pointers_never_crash(self):
        victims = ["frameless", "frames_omitted", "alternate_stack"] + ["thumb_code"] * self.target.emulated
        for victim in victims:
            with self.subTest(victim):
                process = self.run_victim(victim, config=f"{LOGGED} QUARL_HEAD_STACKDEPTH=64")
                self.assert_ends(process, process.out, status=5 if victim == "alternate_stack" else 0)
                self.assertNotIn("slop", process.out)
                self.assertTrue(process.said("block" if victim == "alternate_stack" else "done"))
                log = log_file.read_log(self.log_path(process, "quarlAll", program=victim))
                self.assertGreater(len(log.records), 2)


if __name__ == "__main__":
    case.main()
