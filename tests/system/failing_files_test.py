# SPDX-License-Identifier: Apache-2.0
"""Logs that cannot be written: the message, nothing else lost, the program unharmed."""

import contextlib
import os
import resource
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path

import case
from log_file import read_chain, read_log
from promise import promise

LOG = "QUARL_OUTPUT_LOG=1 "
FAILED = "write log file failed,and error is {}\n".format
EMPTY = 88 + 32768 + 216 + 49600


class FailingFiles(case.Case):
    def works(self, driver, count=250):
        """The program runs on as if nothing had happened."""
        blocks = [driver.malloc(size) for size in range(1, count)]
        for block in blocks:
            driver.fill(block, 1, 1)
            driver.free(block)

    def test_directory_that_cannot_be_written(self):
        """Root may write anywhere but where a directory takes the name, or where nothing can be made."""
        for config, kind in ((LOG, "quarlAll"), ("", "quarl")):
            def occupy():
                os.mkdir(self.directory / f"{self.target.process_name('driver')}_{os.getpid()}_{kind}.log")
            driver = self.driver(config, before_start=occupy)
            driver.malloc(1)
            driver.do(f"raise {signal.SIGUSR1}")  # which leaves a log alone that is not there
            driver.read_some(0)
            self.assertEqual(driver.out, "")
            self.works(driver)
            driver.do(f"raise {signal.SIGUSR1}")
            self.works(driver)
            self.assertEqual(driver.finish(), 0)
            self.assertEqual(set(driver.out.splitlines(True)) - {FAILED("Bad file descriptor"), FAILED("Is a directory")}, set())
            self.assertEqual((driver.err, list(self.log_path(driver, kind).iterdir())), ("", []))
        gone = self.directory / "gone"
        gone.mkdir()
        self.configure(LOG)
        settings = {"QUARL_CFG_FILE": str(self.directory / "quarlcfg.ini")}
        driver = self.driver(directory=gone, environment=settings, before_start=lambda: os.rmdir(gone))
        self.works(driver)
        self.assertEqual(driver.finish(), 0)

    @promise("With `QUARL_CONTRACT=libc` standard output is the program's: what goes wrong with the checker's own files is told "
             "on descriptor 2, each text once, and not again by forked children; it is not told where that is the socket that "
             "descriptor 0 is, for there the program serves a connection.")
    def test_standard_output_of_a_pipeline(self):
        """Nothing but the program's own words, where no log can be made: its folder is a file."""
        clock = "QUARL_TIMER_SIG=SIGUSR2 QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1 QUARL_SNAP_INTERVAL=1 "
        failed = FAILED("Not a directory")
        for config, err in ((LOG + "QUARL_TRACE_BUFSIZE=280", failed), ("", failed), (clock, failed + "Create auto snap file failed!\n")):
            for contract in ("libc", "plain"):
                with self.subTest(config, contract=contract):
                    driver = self.driver(config, environment={"QUARL_CONTRACT": contract, "QUARL_LOG_DIR": "quarlcfg.ini"})
                    driver.do("fork malloc 1")
                    driver.say("words")
                    self.works(driver, 20)
                    driver.do(f"raise {signal.SIGUSR1}")
                    self.assertEqual(driver.finish(), 0)
                    if contract == "libc":
                        self.assertEqual((driver.out, driver.err), ("words", err))
                    else:
                        self.assertEqual((driver.err, driver.out[:len(failed)]), ("", failed))

    @promise("With `QUARL_CONTRACT=libc` standard output is the program's: what goes wrong with the checker's own files is told "
             "on descriptor 2, each text once, and not again by forked children; it is not told where that is the socket that "
             "descriptor 0 is, for there the program serves a connection.")
    def test_standard_descriptors_of_a_connection(self):
        self.configure("")
        environment = {"QUARL_CONTRACT": "libc", "QUARL_LOG_DIR": "quarlcfg.ini"}
        line, variables = self.target.command(self.target.victim("state"), ("1",), environment, True)
        for connected, said in ((True, b""), (False, FAILED("Not a directory").encode())):
            ours, theirs = socket.socketpair()
            with ours, theirs:
                subprocess.run(line, cwd=self.directory, env=variables, stdin=theirs if connected else subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=theirs, check=False)
                theirs.close()
                self.assertEqual(ours.recv(1000), said)

    def small_disk(self, size="128k"):
        disk = Path(tempfile.mkdtemp(prefix="disk-", dir=self.directory))
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", disk], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", disk], check=True)
        return disk

    def driver_on(self, disk, config):
        self.configure(config)
        return self.driver(directory=disk, environment={"QUARL_CFG_FILE": str(self.directory / "quarlcfg.ini")})

    @promise("A closed pipe, a full disk or a limit of the file size raises no signal in the application: the "
             'message is lost, or "write log file failed" is printed.')
    def test_full_disk(self):
        """A short write is not taken for a whole one: what the file holds are whole records from its beginning."""
        disk = self.small_disk()
        driver = self.driver_on(disk, LOG + "QUARL_TRACE_BUFSIZE=5600")
        self.works(driver)
        self.assertEqual(driver.finish(), 0)
        lines = driver.out.splitlines(True)
        self.assertEqual(set(lines), {FAILED("No space left on device")})
        [path] = disk.iterdir()
        log = read_log(path)
        self.assertEqual([record.seq_num for record in log.records], list(range(1, len(log.records) + 1)))
        self.assertEqual(log.stats.counts()["malloc"][0], 249)

    @promise("A log that had no room when it was created is begun anew when there is some.")
    def test_log_begun_on_a_full_disk(self):
        """By a dump or the next reload; the records before it are lost, and the ones behind are numbered on."""
        for config, kind in ((LOG, "quarlAll"), ("", "quarl")):
            for room in (0, 4096, 61440):  # for nothing, for the header, for the maps
                with self.subTest(kind, room=room):
                    disk = self.small_disk("256k")
                    filler = disk / "filler"
                    filler.write_bytes(bytes(256 * 1024 - room))
                    driver = self.driver_on(disk, config + " QUARL_TRACE_BUFSIZE=280")
                    path = disk / self.log_path(driver, kind).name
                    self.assertEqual(path.stat().st_size, 0)
                    first = driver.malloc(10)
                    driver.do(f"raise {signal.SIGUSR1}")
                    self.assertEqual(path.stat().st_size, 0)
                    self.assertEqual(set(driver.out.splitlines(True)), {FAILED("No space left on device")})
                    told = driver.out
                    filler.unlink()
                    driver.malloc(20)  # opens the logs, as it reloads
                    if kind == "quarlAll":  # the other is opened by dumps
                        self.assertGreaterEqual(path.stat().st_size, EMPTY)
                    driver.free(first)
                    driver.malloc(30)
                    self.assert_ends(driver, told)
                    log = read_log(path)
                    expected = [("malloc", 20), ("free", 10), ("malloc", 30)] if kind == "quarlAll" else [("malloc", 20), ("malloc", 30)]
                    self.assertEqual([record.brief()[::2] for record in log.records], expected)
                    self.assertEqual(log.stats.counts()["malloc"], (3, 0, 60))

    @promise("An automatic snapshot for which there is no room is left out of the chain, which stays readable.")
    def test_chain_over_a_full_disk(self):
        """Whichever part does not fit, the chain holds whole snapshots, and their numbers tell how many are missing."""
        clock = "QUARL_TIMER_SIG=SIGUSR2 QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1000 "
        for room in (0, 4096, 40960):  # for the header, some of the maps, some of the rows
            with self.subTest(room=room):
                disk = self.small_disk("1m")
                driver = self.driver_on(disk, clock + "QUARL_SNAP_INTERVAL=1 QUARL_SNAP_DETAIL=1 QUARL_TRACE_BUFSIZE=2800")
                path = disk / self.log_path(driver, "quarl_autosnap").name
                driver.repeat(50, "malloc 10")
                taken = [0]

                def snapshot():
                    """One tick that takes a snapshot or fails to."""
                    before = time.time()
                    driver.await_that(lambda: int(time.time()) > int(before) + 1, "the next snapshot to be due")
                    driver.do(f"raise {signal.SIGUSR2}")
                    taken[0] += 1
                snapshot()
                whole = path.read_bytes()
                filler = disk / "filler"
                with open(filler, "wb", buffering=0) as file:
                    with contextlib.suppress(OSError):
                        while file.write(bytes(4096)):
                            pass
                    file.truncate(max(0, file.tell() - room))
                snapshot()
                snapshot()
                self.assertEqual(path.read_bytes(), whole)
                self.assertEqual(set(driver.out.splitlines(True)), {FAILED("No space left on device")})
                filler.unlink()
                snapshot()
                self.assertEqual(driver.finish(), 0)
                chain = read_chain(path)
                self.assertEqual([each.number for each in chain], [1, 4, 5])
                self.assertEqual([each.record_count for each in chain], [50] * 3)

    def test_size_that_no_log_can_have(self):
        """The value is in force, no log is created, and one line says why, however often logs are opened."""
        for size in (4194304, 2147483647):
            for config in (LOG, "", "QUARL_HEAD_TIME=2 "):
                driver = self.driver(f"QUARL_MAPS_SIZE={size} {config} QUARL_SLOPOVER_EXIT=0 QUARL_TRACE_BUFSIZE=2800")
                self.works(driver)
                driver.do(f"raise {signal.SIGUSR1}")
                self.works(driver)
                self.assert_ends(driver, "", f"QUARL_MAPS_SIZE {size} is too large, no log is written.\n")
                self.assertEqual(self.files(), [])

    @promise("A closed pipe, a full disk or a limit of the file size raises no signal in the application: the "
             'message is lost, or "write log file failed" is printed.')
    def test_size_limit(self):
        for config, kind in ((LOG, "quarlAll"), ("", "quarl")):
            with self.subTest(kind):
                driver = self.driver(config + " QUARL_TRACE_BUFSIZE=5600")
                driver.limit(resource.RLIMIT_FSIZE, EMPTY + 9000)
                for size in range(1, 100):
                    driver.malloc(size)
                driver.do(f"raise {signal.SIGUSR1}")
                self.assertEqual(driver.finish(), 0)
                self.assertEqual(set(driver.out.splitlines(True)), {FAILED("File too large")})

    @promise("A closed pipe, a full disk or a limit of the file size raises no signal in the application: the "
             'message is lost, or "write log file failed" is printed.')
    def test_size_limit_below_what_a_cut_log_needs(self):
        """Somebody has emptied the log: a dump lays its records where they belong, behind the end of the file."""
        for commands in ((), ("handle 25 leave 9",)):
            driver = self.driver("")
            path = self.log_path(driver, "quarl")
            for command in commands:
                driver.do(command)
            driver.malloc(10)
            os.truncate(path, 0)
            driver.limit(resource.RLIMIT_FSIZE, 1000)
            driver.do(f"raise {signal.SIGUSR1}")
            self.assertEqual((driver.finish(), set(driver.out.splitlines(True))), (0, {FAILED("File too large")}))

    def test_no_descriptors_left(self):
        for config in (LOG, "", "QUARL_HEAD_TIME=2 QUARL_SNAP_INTERVAL=0"):
            with self.subTest(config):
                driver = self.driver("QUARL_ALL=0")
                driver.limit(resource.RLIMIT_NOFILE, 3)
                self.configure(config + " QUARL_ALL=1")
                driver.do(f"raise {signal.SIGUSR1}")
                self.works(driver)
                driver.do(f"raise {signal.SIGUSR1}")
                self.works(driver)
                self.assertEqual((driver.finish(), driver.err), (0, ""))
        driver = self.driver("QUARL_ALL=0")
        driver.limit(resource.RLIMIT_NOFILE, 3)
        self.assertEqual(driver.do("fork malloc 10"), 0)
        self.assert_ends(driver)

    def test_file_deleted_while_open(self):
        for config, kind in ((LOG, "quarlAll"), ("", "quarl")):
            with self.subTest(kind):
                driver = self.driver(config)
                self.works(driver)
                self.log_path(driver, kind).unlink()
                driver.do(f"raise {signal.SIGUSR1}")
                self.works(driver)
                self.assert_ends(driver)

    def test_maps_text_longer_than_its_section(self):
        for config, kind in ((LOG, "quarlAll"), ("", "quarl")):
            driver = self.driver(config + " QUARL_MAPS_SIZE=2 QUARL_MMAP=0")
            driver.repeat(60, "mmap 0 4096 1 34 -1 0;mmap 0 4096 0 34 -1 0")
            driver.malloc(10)
            driver.do(f"raise {signal.SIGUSR1}")
            self.assert_ends(driver)
            log = read_log(self.log_path(driver, kind), maps_kb=2)  # which finds the maps cut at a line
            self.assertGreater(len(log.maps), 2048 - 200)
            self.assertEqual(log.stats.counts()["malloc"], (1, 0, 10))
            self.assertTrue(log.records)

    def test_maps_text_that_became_shorter(self):
        """What a longer text has left does not look out behind a shorter one."""
        for config, kind in ((LOG, "quarlAll"), ("", "quarl")):
            driver = self.driver(config + " QUARL_MMAP=0")
            path = self.log_path(driver, kind)
            made = [driver.do(f"mmap 0 4096 {index % 2} 34 -1 0") for index in range(120)]
            driver.do(f"raise {signal.SIGUSR1}")
            longer = read_log(path).maps
            for address in made:
                driver.munmap(address, 4096)
            driver.do(f"raise {signal.SIGUSR1}")
            shorter = read_log(path).maps  # which finds zeros behind it
            self.assertLess(len(shorter), len(longer) - 2000)
            self.assert_ends(driver)

    def test_output_that_is_closed(self):
        driver = self.driver("QUARL_PRINT_PROFINFO=1")
        driver.close(1)
        driver.close(2)
        block = driver.malloc(10)
        driver.fill(block + 10, 0, 1)
        driver.check()
        driver.do(f"raise {signal.SIGUSR1}")
        self.works(driver)
        self.assert_ends(driver)


if __name__ == "__main__":
    case.main()
