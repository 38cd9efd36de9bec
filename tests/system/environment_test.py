# SPDX-License-Identifier: Apache-2.0
"""What the library's own environment variables do, and who is not believed."""

import os
import shutil
import signal
import subprocess
import threading
import unittest

import case
from log_file import read_log
from process import Process
from promise import promise


class LogFolder(case.Case):
    @promise("`QUARL_LOG_DIR` names the folder of all logs, for the whole life of the process.")
    def test_logs_of_a_process_and_its_child(self):
        """A relative folder counts from the directory in which the process began; a missing one is made."""
        elsewhere = self.directory / "elsewhere"
        elsewhere.mkdir()
        for folder in ("logs", str(self.directory / "others") + "/"):
            driver = self.driver("QUARL_OUTPUT_LOG=1", environment={"QUARL_LOG_DIR": folder})
            driver.malloc(10)
            driver.do("fork chdir /proc;malloc 20")
            self.assert_ends(driver)
            self.assertEqual(len(list((self.directory / folder).iterdir())), 2)
        self.assertEqual(self.files(), ["elsewhere", "logs", "others"])


class Findings(case.Case):
    def logs_of(self, commands, config="", **environment):
        before = set(self.files())
        driver = self.driver(config, environment={"QUARL_KEEP": "findings", **environment})
        for command in commands:
            driver.do(command)
        self.assertEqual(driver.finish(), 0)
        return [read_log(self.directory / name) for name in self.files() if name not in before]

    @promise("With `QUARL_KEEP=findings` the exit removes those of the process's own logs that hold no fault, no record "
             "of an operation and nothing unfreed.")
    def test_logs_that_say_nothing_are_removed(self):
        self.assertEqual(self.logs_of(["free 0"]), [])
        self.assertEqual(self.logs_of([f"raise {signal.SIGUSR1}", "free 0"]), [])
        self.assertEqual(len(self.logs_of(["free 0"], QUARL_KEEP="all")), 1)
        for held in ("malloc 10", "mmap 0 4096 3 34 -1 0"):
            [log] = self.logs_of([held])
            self.assertEqual(len(log.records), 1)
        [log] = self.logs_of(["free 0"], "QUARL_OUTPUT_LOG=1")
        self.assertEqual(len(log.records), 1)

    @promise("With `QUARL_KEEP=findings` the exit removes those of the process's own logs that hold no fault, no record "
             "of an operation and nothing unfreed.")
    def test_log_of_a_fault_stays(self):
        driver = self.driver("QUARL_SLOPOVER_EXIT=0", environment={"QUARL_KEEP": "findings"})
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        driver.check()
        driver.set_word(block + 10, 0xFEDABEEB)
        driver.free(block)
        self.assertEqual(driver.finish(), 0)
        self.assertEqual(len(self.files()), 1)

    @promise("A forked child that has not called exec counts there only what it allocated itself.")
    def test_forked_child_counts_its_own(self):
        for commands, logs in (("free 0", 1), ("free 0;free 0", 1), ("malloc 10", 2), ("mmap 0 4096 3 34 -1 0", 2)):
            for name in self.files():
                (self.directory / name).unlink()
            with self.subTest(commands):
                self.logs_of(["malloc 1", "mmap 0 4096 3 34 -1 0", f"fork {commands}"])
                self.assertEqual(len(self.files()), logs)


class Only(case.Case):
    @promise("With `QUARL_ONLY` the programs that it does not name run as without the checker.")
    def test_only_named_programs_are_checked(self):
        cases = [("driver", True), ("a,driver", True), ("a,b", False), ("drive", False), ("driverx,", False), ("", True)]
        for names, checked in cases:
            with self.subTest(names):
                driver = self.driver("QUARL_OUTPUT_LOG=1", environment={"QUARL_ONLY": names})
                small = driver.malloc(10)
                self.assertEqual(driver.word(small - 4) & ~3 == small, checked)  # as a block of the checker names itself
                large = driver.malloc(500000)
                self.assertNotEqual(large, 0)
                self.assertNotEqual(driver.do(f"realloc {large} 900000"), 0)
                if not checked:
                    self.assertNotEqual(driver.malloc(0), 0)
                for command in ("calloc 1 300000", "memalign 4096 200000", "fork malloc 10"):
                    driver.do(command)
                self.assert_ends(driver)
                self.assertEqual(len(self.files()), 2 if checked else 0)
                for name in self.files():
                    (self.directory / name).unlink()

    @promise("With `QUARL_ONLY` the programs that it does not name run as without the checker.")
    def test_programs_that_are_left_alone_are_untouched(self):
        """Arenas and options of the C library, descriptors, signals, memory that nobody touched."""
        ends = []
        for options in ({"preload": False}, {"environment": {"QUARL_ONLY": "others", "QUARL_CONTRACT": "libc"}}, {}):
            process = self.run_victim("state", config="", **options)
            ends.append((process.finish(), process.out, process.err))
        self.assertEqual(ends[0], ends[1])
        self.assertNotEqual(ends[0], ends[2])
        self.assertRegex(ends[0][1], r"count=\"1\"[\s\S]*arenas [2-9]")


class Pipes(case.Case):
    def test_configuration_from_a_pipe(self):
        """Long lines, comments and the missing last line end as in a file; a reload does not wait for a writer."""
        pipe = self.directory / "pipe"
        os.mkfifo(pipe)
        text = "# " + 200 * "c" + "\nQUARL_HEAD_STACKDEPTH=5\r\n\n" + 180 * " " + "QUARL_OUTPUT_LOG=1\nQUARL_MEM_HEAD=0"
        writer = threading.Thread(target=lambda: pipe.write_text(text))
        writer.start()
        driver = self.driver(environment={"QUARL_CFG_FILE": str(pipe)})
        writer.join()
        driver.malloc(10)
        driver.do(f"raise {signal.SIGUSR1}")
        driver.malloc(20)
        self.assert_ends(driver, "", driver.err)
        log = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual([(record.size, record.depth <= 5) for record in log.records], [(10, True), (20, True)])


@unittest.skipUnless(os.getuid() == 0, "only root can give a program to a group that it is not in")
class BorrowedRights(case.Case):
    """A set-group-id program with the library linked; to the kernel as good as one of another user."""

    def setUp(self):
        super().setUp()
        if self.target.emulated:
            self.skipTest("the emulator runs with its own rights")
        self.program = self.directory / "program"
        shutil.copy(self.target.victim("linked"), self.program)
        shutil.copy(self.target.library, self.directory / "libquarl.so")
        os.chown(self.program, 0, 65534)
        os.chmod(self.program, 0o2755)
        self.work = self.directory / "work"
        self.work.mkdir()

    def damaged_tables(self):
        """A folder of tables for what the program loads; whoever looks there says that they are damaged."""
        quarl = self.target.build.parent / "host" / "quarl"
        if not quarl.exists():
            self.skipTest("quarl for the desk is not built")
        tables = self.directory / "tables"
        subprocess.run([quarl, "frames", self.program, self.directory / "libquarl.so", "-o", tables], check=True,
                       stdout=subprocess.DEVNULL)
        for table in tables.iterdir():
            table.write_bytes(table.read_bytes()[:-4])
        return tables

    def run_program(self, before=lambda: None, **environment):
        process = self._started(Process(self.target, self.program, directory=self.work, preload=False,
                                        environment=environment, before_start=before))
        return process, process.finish()

    @promise("A set-user-id program believes neither the environment nor the current directory: no configuration is read "
             "there, and no log is created through a link or over a file.")
    def test_neither_environment_nor_directory_is_believed(self):
        victim = self.directory / "precious"
        victim.write_text("precious")
        (self.work / "quarlcfg.ini").write_text("QUARL_OUTPUT_LOG=1\nQUARL_PRINT_PROFINFO=1\nQUARL_LOG_OVERLAY=1\n")
        process, status = self.run_program(QUARL_CFG_FILE=str(self.work / "quarlcfg.ini"), QUARL_KEEP="findings",
                                            QUARL_LOG_DIR=str(self.directory), QUARL_ONLY="nothing",
                                            QUARL_EVENTS=str(self.work / "events"), QUARL_MESSAGES="nowhere")
        self.assertEqual((status, process.out, process.err), (0, "", ""))
        self.assertEqual(sorted(path.name for path in self.work.iterdir()),
                         [f"program_{process.pid}_quarl.log", "quarlcfg.ini"])
        for link in (os.symlink, os.link):
            def lay_trap():
                link(victim, self.work / f"program_{os.getpid()}_quarl.log")
            process, status = self.run_program(lay_trap)
            self.assertEqual((status, victim.read_text()), (0, "precious"))

    @promise("A set-user-id program believes neither the environment nor the current directory: no configuration is read "
             "there, and no log is created through a link or over a file.")
    def test_tables_that_the_environment_names_are_not_read(self):
        tables = self.damaged_tables()
        process, status = self.run_program(QUARL_FRAMES=str(tables))
        self.assertEqual((status, process.out, process.err), (0, "", ""))
        os.chmod(self.program, 0o755)  # with its own rights the same program believes it
        process, status = self.run_program(QUARL_FRAMES=str(tables))
        self.assertEqual((status, sorted(process.err.splitlines())), (0, sorted(
            f"unwind table {table} is damaged, it is not used" for table in tables.iterdir())))


if __name__ == "__main__":
    case.main()
