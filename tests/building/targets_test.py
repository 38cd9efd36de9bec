# SPDX-License-Identifier: Apache-2.0
"""What the build takes for its target, and what it refuses, by the compiler alone."""

import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
OBJECTS = "-DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY"  # no start files for such a processor: nothing is linked
ARM = "arm-linux-gnueabi-"


def configure(prefix, flags, *options):
    """The exit status and the words of cmake, as one line."""
    with tempfile.TemporaryDirectory(prefix="quarl-") as folder:
        environment = os.environ | {"CC": prefix + "gcc", "CXX": prefix + "g++", "CFLAGS": flags, "CXXFLAGS": flags, "ASMFLAGS": flags}
        done = subprocess.run(["cmake", "-G", "Ninja", "-S", ROOT, "-B", folder, *options], env=environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return done.returncode, re.sub(r"\s+", " ", done.stdout)


class Targets(unittest.TestCase):
    def test_taken(self):
        for prefix, flags, options, target in (("i686-linux-gnu-", "", (), "i686"), (ARM, "", ("-DQUARL_TARGET=library",), "armel"),
                                               (ARM, "-mthumb -march=armv7-a", (), "armel"), ("arm-linux-gnueabihf-", "", (), "armhf"),
                                               ("arm-linux-gnueabihf-", "", ("-DQUARL_TARGET=armhf",), "armhf")):
            with self.subTest(target, flags=flags):
                status, said = configure(prefix, flags, "-DBUILD_TESTING=OFF", *options)
                self.assertEqual(status, 0, said)
                self.assertIn(f"libquarl.so for {target}, seam layer", said)

    def test_refused(self):
        for prefix, flags, options, why in (
                ("", "", ("-DQUARL_TARGET=library",), "gcc makes code for a 64-bit processor."),
                ("", "", ("-DCMAKE_SYSTEM_NAME=Linux",), "gcc makes code for a 64-bit processor."),
                (ARM, "-march=armv4t", (OBJECTS,), "gcc makes code for ARM before ARMv5."),
                (ARM, "-mbig-endian", (OBJECTS,), "gcc makes code for big endian ARM."),
                (ARM, "-mthumb -mcpu=cortex-m3", (OBJECTS,), "gcc makes code for ARM without ARM state."),
                (ARM, "", ("-DQUARL_TARGET=armhf",), "arm-linux-gnueabi-gcc makes code for armel.")):
            with self.subTest(why, options=options):
                status, said = configure(prefix, flags, *options)
                self.assertNotEqual(status, 0)
                self.assertIn(why, said)


if __name__ == "__main__":
    unittest.main()
