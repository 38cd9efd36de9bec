"""Call traces: the functions in them, where they end, and that garbage frame pointers only shorten them."""

import case
import log_file
import symbols
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

    def test_trace_leads_from_the_allocation_to_main(self):
        for victim in ("deep_calls", "deep_calls_fixed"):
            with self.subTest(victim):
                self.assertEqual(self.trace_of(victim), CALLERS + ["main"])

    def test_trace_of_a_thread_leads_through_its_body(self):
        trace = self.trace_of("deep_calls", "thread")
        self.assertEqual(trace[:5], CALLERS + ["thread_body"])

    def test_depth_cuts_the_trace(self):
        for depth, expected in ((2, CALLERS[:2]), (3, CALLERS[:3]), (64, CALLERS + ["main"]), (65, []), (0, [])):
            with self.subTest(depth):
                self.assertEqual(self.trace_of("deep_calls", config=f"{LOGGED} QUARL_HEAD_STACKDEPTH={depth}"), expected)

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
