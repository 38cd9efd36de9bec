"""The whole-heap check: every trigger alone, the conditions it needs, and how far the walk goes."""

import signal

import case
from report_text import take_reports

BASE = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0 QUARL_SLOPOVER_API=0 "
# trigger: items, the commands that run one check, and a command that must not
TRIGGERS = {
    "malloc": ("QUARL_SLOPOVER_MALLOC=1", ["malloc 10", "memalign 16 10", "realloc 0 10", "calloc 1 10"], "free 0"),
    "free": ("QUARL_SLOPOVER_FREE=1", ["free 0", "realloc 0 10"], "malloc 10"),
    "api": ("QUARL_SLOPOVER_API=1", ["check"], "malloc 10"),
    "timer": ("QUARL_TIMER=1 QUARL_SLOPOVER_TIMER=1", [f"raise {signal.SIGALRM}"], "check"),
    "user": ("QUARL_SLOPOVER_USER=40", ["raise 40"], "check"),
    "user 14": ("QUARL_SLOPOVER_USER=14", [f"raise {signal.SIGALRM}"], "check"),
    "dump": ("", [f"raise {signal.SIGUSR1}"], "check"),
}


class HeapCheck(case.Case):
    def damaged(self, config):
        """A puppet with sound blocks and two damaged tails between them."""
        puppet = self.puppet(config)
        blocks = [puppet.malloc(size) for size in (10, 20, 30, 40, 50)]
        for index in (1, 3):
            puppet.fill(blocks[index] + 10 * (index + 1), 0, 1)
        return puppet, [blocks[1], blocks[3]]

    def found(self, puppet, command):
        before = len(puppet.out)
        puppet.do(command)
        puppet.read_some(0)  # what it wrote stands in the pipe when the answer does
        reports, rest = take_reports(puppet.out[before:])
        self.assertEqual(rest, "")
        return [report.address for report in reports]

    def test_every_trigger_checks_and_nothing_else_does(self):
        for name, (items, commands, other) in TRIGGERS.items():
            with self.subTest(name):
                puppet, damaged = self.damaged(BASE + items)
                for command in commands:
                    self.assertEqual(self.found(puppet, command), damaged, command)
                self.assertEqual(self.found(puppet, other), [])
                self.assert_ends(puppet, puppet.out)

    def test_conditions_common_to_all_triggers(self):
        for name, (items, commands, _) in TRIGGERS.items():
            if name == "dump":
                continue
            with self.subTest(name):
                puppet = self.puppet(f"{BASE} {items} QUARL_SLOPOVER=0")
                block = puppet.malloc(10)
                puppet.set_word(block - 4, 0)
                self.assertEqual(self.found(puppet, commands[0]), [])
                self.assert_ends(puppet)

    def test_triggers_that_are_off(self):
        cases = [("QUARL_SLOPOVER_TIMER=1", "raise 14"), ("QUARL_SLOPOVER_THREAD=1", "malloc 1"),
                 ("QUARL_MEM_CHECK=1", "malloc 1"), ("QUARL_MEM_CHECK_IN_HOOK=1", "malloc 1"), ("", "check")]
        for items, command in cases:
            with self.subTest(items):
                puppet, _ = self.damaged(BASE + items)
                self.assertEqual(self.found(puppet, command), [])
                self.assert_ends(puppet)

    def test_broken_head_ends_the_walk(self):
        puppet = self.puppet("QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        self.assertEqual(self.found(puppet, "check"), [])
        blocks = [puppet.malloc(16) for _ in range(4)]
        for index in (0, 3):
            puppet.fill(blocks[index] + 16, 0, 1)
        puppet.set_word(blocks[2] - 4, 1)
        self.assertEqual(self.found(puppet, "check"), [blocks[0], blocks[2]])
        self.assertEqual(self.found(puppet, "check"), [blocks[0], blocks[2]])
        self.assert_ends(puppet, puppet.out)

    def test_damaged_links_end_the_walk(self):
        puppet = self.puppet("QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0")
        blocks = [puppet.malloc(16) for _ in range(3)]
        puppet.fill(blocks[2] + 16, 0, 1)
        link = puppet.word(blocks[1] - 8)
        for target in (blocks[1], blocks[0], 0):
            puppet.set_word(blocks[1] - 8, target | link & 3)
            self.assertEqual(self.found(puppet, "check"), [])
        puppet.set_word(blocks[1] - 8, link)
        self.assertEqual(self.found(puppet, "check"), [blocks[2]])
        self.assert_ends(puppet, puppet.out)

    def test_handler_of_a_trigger_survives_a_busy_lock(self):
        """Checks asked for by a signal while threads are in the hooks all run: none is lost, none tears a report."""
        puppet, damaged = self.damaged(BASE + "QUARL_SLOPOVER_USER=40")
        worker = puppet.spawn()
        worker.send("repeat 20000 free 0")
        for _ in range(50):
            before = len(puppet.out)
            puppet.signal(40)
            puppet.await_that(lambda: puppet.out.count("call trace") >= 2 + puppet.out[:before].count("call trace"), "check")
        puppet.answer(worker.number)
        self.assertEqual(puppet.finish(), 0)
        reports, rest = take_reports(puppet.out)
        self.assertEqual(({report.address for report in reports}, rest, len(reports) % 2), (set(damaged), "", 0))


if __name__ == "__main__":
    case.main()
