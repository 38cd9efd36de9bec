"""Logs that cannot be written: the message, nothing else lost, the program unharmed."""

import os
import resource
import signal
import subprocess

import case
from log_file import read_log
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

    @promise("A closed pipe, a full disk or a limit of the file size raises no signal in the application: the "
             'message is lost, or "write log file failed" is printed.')
    def test_full_disk(self):
        """A short write is not taken for a whole one: what the file holds are whole records from its beginning."""
        disk = self.directory / "disk"
        disk.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=128k", "tmpfs", disk], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", disk], check=True)
        self.configure(LOG + "QUARL_TRACE_BUFSIZE=5600")
        driver = self.driver(directory=disk, environment={"QUARL_CFG_FILE": str(self.directory / "quarlcfg.ini")})
        self.works(driver)
        self.assertEqual(driver.finish(), 0)
        lines = driver.out.splitlines(True)
        self.assertEqual(set(lines), {FAILED("No space left on device")})
        [path] = disk.iterdir()
        log = read_log(path)
        self.assertEqual([record.seq_num for record in log.records], list(range(1, len(log.records) + 1)))
        self.assertEqual(log.stats.counts()["malloc"][0], 249)

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
            if not self.target.emulated:  # the emulator shows the maps as they were when they were opened
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
