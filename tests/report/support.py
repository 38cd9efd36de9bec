# SPDX-License-Identifier: Apache-2.0
"""What the tests of the report share: running the tool, a folder for logs, the library of a target."""

import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from log_builder import Layout

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUARL_BUILD", SOURCE / "build"))
PROGRAMS = Path(os.environ.get("QUARL_REPORT_PROGRAMS", BUILD / "host/tests/report"))
TOOL = BUILD / "host/quarl"
DEADLINE = 120

# How each target's programs run: what goes before the program, the sysroot of its libraries.
RUNNERS = {
    "i686": lambda environment: ["env", *environment],
    "armhf": lambda environment: ["qemu-arm", "-L", "/usr/arm-linux-gnueabihf",
                                  *[part for setting in environment for part in ("-E", setting)]],
}


class ReportTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = Path(tempfile.mkdtemp(prefix="quarl-report-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.layout = Layout()

    def write(self, content, name="sample_4242_quarlAll.log"):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def report(self, *arguments, status=0):
        """Runs `quarl report`; gives its standard output and standard error."""
        environment = {**os.environ, "LC_ALL": "C.UTF-8"}
        done = subprocess.run([TOOL, "report", *map(str, arguments)], capture_output=True, timeout=DEADLINE,
                              env=environment, check=False)
        errors = done.stderr.decode()
        self.assertEqual(done.returncode, status, errors)
        return done.stdout, errors

    def text(self, *arguments):
        return self.report(*arguments)[0].decode()

    def json(self, *arguments):
        document = json.loads(self.report(*arguments, "--format", "json")[0])
        self.assertEqual((document["schema"], document["version"]), ("quarl-report", 1))
        return document

    def bytes_read(self, *arguments):
        """Runs `quarl report`; gives how many bytes it read in all, as the kernel counted."""
        tool = subprocess.Popen([TOOL, "report", *map(str, arguments)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.waitid(os.P_PID, tool.pid, os.WEXITED | os.WNOWAIT)  # it has ended, and its counts are still there
        counts = Path(f"/proc/{tool.pid}/io").read_text()
        self.assertEqual(tool.wait(), 0)
        return int(re.search(r"rchar: (\d+)", counts)[1])


def run_checked(target, program, folder, *arguments, **items):
    """Runs a program under the library of `target` in `folder`; items are the lines of the configuration file."""
    library = BUILD / target / "libquarl.so"
    if not library.exists() or not (PROGRAMS / program).exists():
        raise unittest.SkipTest(f"{target} is not built")
    config = folder / "quarlcfg.ini"
    config.write_text("".join(f"QUARL_{key}={value}\n" for key, value in items.items()))
    environment = [f"LD_PRELOAD={library}", f"QUARL_CFG_FILE={config}"]
    command = [*RUNNERS[target](environment), str(PROGRAMS / program), *arguments]
    subprocess.run(command, cwd=folder, stdout=subprocess.DEVNULL, timeout=DEADLINE, check=True)


def the_log(folder, ending):
    """The one log in `folder` whose name ends so."""
    found = list(folder.glob(f"*{ending}"))
    assert len(found) == 1, found
    return found[0]
