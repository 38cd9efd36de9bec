# SPDX-License-Identifier: Apache-2.0
"""Programs that leave everything behind: descriptors, parents, directory. Their logs are where they began, and whole."""

import ctypes
import os
import select

import case
from log_file import read_chain, read_log
from process import DEADLINE
from promise import promise

SET_CHILD_SUBREAPER = 36  # of prctl
NOWHERE = "/proc"  # where nobody can make a file
RECORDS, SNAPSHOT = "QUARL_OUTPUT_LOG=1 QUARL_SLOPOVER_EXIT=0", "QUARL_SLOPOVER_EXIT=0"
CLOCK = "QUARL_ALL=1 QUARL_MEM_HEAD=1 QUARL_HEAD_TIME=2 QUARL_TIME_INTERVAL=1000 QUARL_SNAP_INTERVAL=1000 "


def setUpModule():
    """Daemons become our children, so that their ends can be awaited."""
    ctypes.CDLL(None).prctl(SET_CHILD_SUBREAPER, 1, 0, 0, 0)


class Daemons(case.Case):
    def end_of(self, pid):
        """Exit status of a process that is or became a child."""
        handle = os.pidfd_open(pid)
        ready = select.select([handle], [], [], DEADLINE)[0]
        os.close(handle)
        self.assertTrue(ready, "it does not end")
        return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])

    def leave(self, forks, closes, config):
        """The path of the log of the process that is left, for a kind of log."""
        process = self.run_victim("leaving", forks, closes, NOWHERE, config=config)
        [pid] = process.said("left")
        if forks != "none":
            self.assertEqual(self.end_of(pid), 0)
        self.assert_ends(process)
        return lambda kind: self.directory / f"{self.target.process_name('leaving')}_{pid}_{kind}.log"

    @promise("Where none can be made in the current directory, it is made in the one in which the process began, by forked children too.",
             "A log or the maps file that the application has closed is opened again when it is needed.")
    def test_maps_and_records_reach_a_log(self):
        ways = [("none", "loop"), ("none", "from"), ("none", "range"), ("none", "over"), ("one", "nothing"),
                ("one", "from"), ("two", "range"), ("two", "over")]
        for forks, closes in ways:
            for config, kind in ((RECORDS, "quarlAll"), (SNAPSHOT, "quarl")):
                with self.subTest(kind, forks=forks, closes=closes):
                    log = read_log(self.leave(forks, closes, config)(kind))
                    self.assertIn("quarlcfg.ini", log.maps)
                    rows = [record.brief()[::2] for record in log.records]
                    before = [("malloc", 1000)] if forks == "none" or kind == "quarl" else []
                    if kind == "quarl":
                        behind = [("malloc", 2000), ("malloc", 4000), ("mmap", 4096)]
                    else:
                        behind = [("mmap", 4096), ("malloc", 2000), ("malloc", 3000), ("free", 3000), ("malloc", 4000)]
                    self.assertEqual(rows, before + behind)
                    self.assertEqual(log.stats.counts()["malloc"], (4, 0, 10000))
                    self.assertGreater(log.time, 0)

    @promise("Where none can be made in the current directory, it is made in the one in which the process began, by forked children too.")
    def test_chain_that_is_begun_elsewhere(self):
        path = self.leave("none", "from", CLOCK + SNAPSHOT)("quarl_autosnap")
        [snapshot] = read_chain(path)
        self.assertIn("quarlcfg.ini", snapshot.maps)

    def test_directory_in_which_no_log_can_be_made(self):
        """A service is started in a directory that is not its own, and goes to its own."""
        for config, kind in ((RECORDS, "quarlAll"), (SNAPSHOT, "quarl")):
            self.configure(config)
            own = self.directory / kind
            own.mkdir()
            driver = self.driver(directory=NOWHERE, environment={"QUARL_CFG_FILE": str(self.directory / "quarlcfg.ini")})
            driver.chdir(str(own))
            driver.do("raise 10")
            driver.malloc(10)
            driver.chdir(NOWHERE)
            driver.malloc(20)
            self.assertEqual(driver.finish(), 0)
            [path] = own.iterdir()
            self.assertIn(20, [record.size for record in read_log(path).records])


if __name__ == "__main__":
    case.main()
