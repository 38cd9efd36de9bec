# SPDX-License-Identifier: Apache-2.0
"""quarl config: what it tells of a file, the template, the reference page; and that the library agrees."""

import os
import re
import subprocess
import unittest

from tool import DEADLINE, SOURCE, ToolTest, library, victim

MASTERS = "QUARL_ALL=1\nQUARL_MEM_HEAD=1\nQUARL_PROF=1\n"

# (what the case is about, content of the file, {line: what is told of it}); an empty dictionary: nothing to tell.
CASES = [
    ("every line in order", MASTERS + "QUARL_HEAD_TIME=2\nQUARL_TIME_INTERVAL=5\nQUARL_SNAP_INTERVAL=10\n", {}),
    ("blanks, comments, carriage returns", "\n  # note\n\tQUARL_ALL\t=  1 # on\r\n\r\nQUARL_PROF=0\r", {}),
    ("last line without an end", "QUARL_ALL=1\nQUARL_PROF=0", {2: "no line end and is never read"}),
    ("comment without an end", "QUARL_ALL=1\n# end", {}),
    ("127 characters are a line", "QUARL_PROF=0" + " " * 115 + "\n", {}),
    ("128 characters are not", "QUARL_PROF=0" + " " * 116 + "\n",
     {1: "the line has 128 characters; only its last 127 are read"}),
    ("the tail of a long line counts", "x" * 173 + " " * 15 + "QUARL_PROF=0\n", {1: "the line has 200 characters"}),
    ("the tail of a long comment counts", "#" + "-" * 116 + "QUARL_PROF=0\n", {1: "the line has 129 characters"}),
    ("key too long", "Q" * 32 + "=1\n", {1: "the key is longer than 31"}),
    ("key at the limit", "Q" * 31 + "=1\n", {1: "no item"}),
    ("value too long", "QUARL_LOG_FILENAME=" + "v" * 16 + "\n", {1: "longer than 15"}),
    ("value at the limit", "QUARL_LOG_FILENAME=" + "v" * 15 + "\n", {}),
    ("no equals sign", "QUARL_ALL 1\n", {1: 'not followed by "="'}),
    ("no value", "QUARL_ALL=  \n", {1: "no value"}),
    ("empty value", "QUARL_ALL=#1\n", {1: "the value is empty"}),
    ("lower case", "quarl_all=1\n", {1: "did you mean QUARL_ALL?"}),
    ("text that is passed over", "QUARL_ALL on =1 more\n", {1: '" on " before'}),
    ("text behind a NUL", b"QUARL_ALL=1\0junk\n", {}),
    ("a line of blanks", "  \t\n", {1: "a line of blanks"}),
    ("first value stays", "QUARL_SIG=SIGUSR2\nQUARL_SIG=10\n", {2: "keeps SIGUSR2 from line 1"}),
    ("later value holds", "QUARL_PROF=0\nQUARL_PROF=1\n", {}),
    ("interval before its masters", "QUARL_HEAD_TIME=2\nQUARL_TIME_INTERVAL=5\n",
     {2: "put QUARL_ALL=1 and QUARL_MEM_HEAD=1 above it"}),
    ("interval without the clock", MASTERS + "QUARL_TIME_INTERVAL=5\n", {4: "put QUARL_HEAD_TIME=2 above it"}),
    ("default interval is late enough", "QUARL_HEAD_TIME=2\n", {}),
    ("snapshots end the process", "QUARL_SNAP_INTERVAL=5\n", {1: "ends the process"}),
    ("snapshots after a clock stopped by 0",
     MASTERS + "QUARL_HEAD_TIME=2\nQUARL_TIME_INTERVAL=0\nQUARL_SNAP_INTERVAL=5\n", {6: "ends the process"}),
    ("thread statistics refused", "QUARL_ALL=1\nQUARL_THREAD=1\n", {2: "put QUARL_PROF=1 above it"}),
    ("thread statistics before the master", "QUARL_THREAD=1\n", {}),
    ("master off", "QUARL_MEM_HEAD=0\nQUARL_HEAD_TID=1\n", {2: "has no effect: QUARL_MEM_HEAD is off"}),
    ("timer signal too late", MASTERS + "QUARL_HEAD_TIME=2\nQUARL_TIME_INTERVAL=1\nQUARL_TIMER_SIG=SIGUSR2\n",
     {6: "above QUARL_TIME_INTERVAL in line 5"}),
    ("one signal for two", MASTERS + "QUARL_HEAD_TIME=2\nQUARL_TIMER_SIG=SIGUSR1\nQUARL_TIME_INTERVAL=1\n",
     {5: "share signal SIGUSR1"}),
    ("values read as something else",
     "QUARL_ALL=on\nQUARL_SIG=SIGHUP\nQUARL_TIMER_SIG=SIGKILL\nQUARL_HEAD_STACKDEPTH=65\nQUARL_TRACE_BUFSIZE=14000\n"
     "QUARL_MAPS_SIZE=0\nQUARL_SLOPOVER_USER=SIGUSR2\nQUARL_HEAD_TIME=3\n",
     {1: "read as 0", 2: "read as SIGUSR1", 3: "cannot be handled", 4: "turns the call traces off", 5: "read as 28000",
      6: "leaves the size at 32", 7: "write 12", 8: "write 0, 1 or 2"}),
    ("values at their limits",
     "QUARL_HEAD_STACKDEPTH=64\nQUARL_TRACE_BUFSIZE=280\nQUARL_MAPS_SIZE=2\nQUARL_SIG=16\nQUARL_SLOPOVER_USER=40\n", {}),
]


class ConfigCheck(ToolTest):
    def findings(self, content):
        path = self.write("file.ini", content)
        result = self.quarl("config", "check", path)
        found = {}
        for line in result.stdout.splitlines():
            match = re.fullmatch(re.escape(path) + r":(\d+): (.*)", line)
            if match:
                found.setdefault(int(match[1]), []).append(match[2])
        self.assertEqual(result.returncode, 1 if found else 0, result)
        return found

    def test_cases(self):
        for about, content, expected in CASES:
            with self.subTest(about):
                found = self.findings(content)
                if expected:
                    for line, text in expected.items():
                        self.assertIn(text, " / ".join(found.get(line, [])), found)
                if not expected:
                    self.assertEqual(found, {})

    def test_library_complains_about_the_same_lines(self):
        """Lines that the check calls ignored are the ones that the library names on standard error."""
        program, preload = victim("i686"), library("i686")
        content = "".join(text if text.endswith(("\n", "\r")) else text + "\n" for _, text, _ in CASES
                          if isinstance(text, str) and "SNAP" not in text)  # which would end the process
        found = self.findings(content)
        ignored = [text for texts in found.values() for text in texts
                   if text.startswith("ignored: ") or "line of blanks" in text]
        bare = {**self.environment, "LD_PRELOAD": preload, "QUARL_CFG_FILE": os.path.join(self.folder, "file.ini")}
        result = subprocess.run([program], env=bare, cwd=self.folder, capture_output=True, timeout=DEADLINE)
        complaints = re.findall(rb"^(?:Item .* is not support|Err item .*)$", result.stderr, re.MULTILINE)
        self.assertGreater(len(ignored), 8)
        self.assertEqual(len(complaints), len(ignored), (complaints, ignored))

    def test_unreadable_files_are_refused(self):
        for path, text in (("none.ini", "cannot read none.ini"), (".", "is a directory")):
            result = self.quarl("config", "check", path)
            self.assertEqual((result.returncode, result.stdout), (1, ""))
            self.assertIn(text, result.stderr)


class Reference(ToolTest):
    def test_page_in_docs_is_current(self):
        with open(os.path.join(SOURCE, "docs/configuration.md"), encoding="utf-8") as page:
            self.assertEqual(page.read(), self.quarl("config", "--markdown").stdout,
                             "write it anew: build/host/quarl config --markdown > docs/configuration.md")

    def test_template_is_sound_as_it_is_and_with_every_item_switched_on(self):
        template = self.quarl("config", "--template").stdout
        self.assertEqual(self.quarl("config", "check", self.write("as_it_is.ini", template)).returncode, 0)
        items = re.sub(r"^#(QUARL_)", r"\1", template, flags=re.MULTILINE)
        items = items.replace("QUARL_HEAD_TIME=1", "QUARL_HEAD_TIME=2")  # a timer, for the items that need it
        result = self.quarl("config", "check", self.write("all.ini", items))
        self.assertIn("items set: 36", result.stdout, result.stdout)

    def test_help_manual_and_completion_cover_every_verb(self):
        verbs = re.findall(r"^  (\w+)  ", self.quarl("--help").stdout.split("Subcommands:")[1], re.MULTILINE)
        self.assertGreaterEqual(len(verbs), 8)
        manual = self.quarl("man").stdout
        script = self.write("completion", self.quarl("completion", "bash").stdout)
        completed = subprocess.run(
            ["bash", "-c", f"source {script}; COMP_WORDS=(quarl ''); COMP_CWORD=1; _quarl; echo ${{COMPREPLY[@]}};"
             "COMP_WORDS=(quarl run --f); COMP_CWORD=2; _quarl; echo ${COMPREPLY[@]}"],
            capture_output=True, text=True, check=True).stdout.splitlines()
        self.assertEqual(completed[1], "--fault-exitcode")
        for verb in verbs:
            self.assertIn("Example", self.quarl(verb, "--help").stdout)
            self.assertIn(f".SS quarl {verb}", manual)
            self.assertIn(verb, completed[0].split())

    def test_wrong_usage_is_2(self):
        for arguments in ([], ["nothing"], ["run"], ["ctl", "board"], ["dump"], ["release", "x"], ["config", "check"]):
            result = self.quarl(*arguments)
            self.assertEqual((result.returncode, result.stdout), (2, ""), arguments)


if __name__ == "__main__":
    unittest.main()
