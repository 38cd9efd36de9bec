# SPDX-License-Identifier: Apache-2.0
"""Which of the functions that a hook is compiled to does the work: by where a call is when it touches a block's header."""

import case
import symbols

SHORT, RECORDS = ("malloc_hook", "free_hook", "realloc_hook"), ("malloc_with_records", "free_with_records")
LONG = ("malloc_for_any_flags", "free_for_any_flags", "realloc_for_any_flags")
# What changes nothing about a call of malloc, free or realloc.
BESIDE = ("QUARL_LOG_OVERLAY=1", "QUARL_LOG_OVERLAY=0", "QUARL_PRINT_PROFINFO=1", "QUARL_MEM_CHECK=1", "QUARL_MEM_CHECK=0",
          "QUARL_HEAD_STACKDEPTH=6", "QUARL_TRACE_MMAP=1", "QUARL_TRACE_BUFSIZE=2800")
OTHERS = ("QUARL_THREAD=1", "QUARL_PROF=0", "QUARL_HEAD_TID=0", "QUARL_HEAD_TIME=0", "QUARL_HEAD_STACKDEPTH=0",
          "QUARL_SLOPOVER=0", "QUARL_HEAP_LIMIT=1000000000")


class ShortWay(case.Case):
    def function_of(self, call, config):
        """The function, by its own name, in which the call was when it met the header."""
        victim = self.run_victim("faulting_call", call, config=config)
        self.assertEqual(victim.finish(), 0, (call, config, victim.err))
        offset = int(victim.out.splitlines()[-1], 16)
        return symbols.function_at(self.target, self.target.library, offset)

    def expect(self, functions, config):
        for function in functions:
            with self.subTest(config=config, function=function):
                self.assertIn(function, self.function_of(function.split("_")[0], config))

    def test_default_flags_take_the_short_way(self):
        self.expect(SHORT, "")
        for config in BESIDE:
            self.expect(SHORT, config)

    def test_the_record_log_has_its_own(self):
        self.expect(RECORDS, "QUARL_OUTPUT_LOG=1")
        self.expect(RECORDS, "QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=2800")

    def test_any_other_setting_takes_the_long_way(self):
        for config in OTHERS:
            self.expect(LONG, config)
            self.expect(LONG, f"{config} QUARL_OUTPUT_LOG=1")

    def test_a_check_in_the_call_comes_first(self):
        for config in ("QUARL_SLOPOVER_MALLOC=1", "QUARL_SLOPOVER_MALLOC=1 QUARL_OUTPUT_LOG=1"):
            for function in (SHORT[0], RECORDS[0]):
                self.assertNotIn(function, self.function_of("malloc", config))


if __name__ == "__main__":
    case.main()
