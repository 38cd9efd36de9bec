# SPDX-License-Identifier: Apache-2.0
"""What `make dist` gives Buildroot and Yocto: sums, versions, what the files say, and the call that Buildroot makes of them.

Neither of the two runs here. make reads the .mk files as Buildroot would, with functions of its own in place of Buildroot's;
the recipe is read as text.
"""

import hashlib
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DIST = ROOT / "build" / "dist"
FAMILY = """
BR2_EXTERNAL_QUARL_PATH := {tree}
HOST_DIR = /host
STAGING_DIR = /staging
cmake-package = $(eval IS_PACKAGE := yes)
host-cmake-package = $(eval IS_HOST_PACKAGE := yes)
include $(BR2_EXTERNAL_QUARL_PATH)/external.mk
print-%:; @echo '$($*)'
"""


def digest(kind, file):
    return hashlib.new(kind, file.read_bytes()).hexdigest()


def output(*line, **options):
    return subprocess.run([*map(str, line)], check=True, capture_output=True, text=True, **options).stdout


class Contrib(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        output(ROOT / "scripts" / "dist")
        cls.version = re.search(r"project\(quarl VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
        cls.archive = DIST / f"quarl-{cls.version}.tar.xz"
        cls.scratch = Path(tempfile.mkdtemp(prefix="quarl-"))
        cls.addClassCleanup(shutil.rmtree, cls.scratch)
        output("tar", "-xf", cls.archive, "-C", cls.scratch)
        cls.source = cls.scratch / f"quarl-{cls.version}"

    def value(self, name, *settings):
        """A variable of quarl.mk, with these of Buildroot's."""
        makefile = self.scratch / "Makefile"
        makefile.write_text(FAMILY.format(tree=DIST / "buildroot"))
        return output("make", "-s", "-f", makefile, f"print-{name}", *settings).strip()

    def test_archive_is_the_commit_and_the_same_each_time(self):
        before = digest("sha256", self.archive)
        output(ROOT / "scripts" / "dist")
        self.assertEqual(digest("sha256", self.archive), before)
        files = {str(file.relative_to(self.source)) for file in self.source.rglob("*") if not file.is_dir()}
        self.assertEqual(files, set(output("git", "-C", ROOT, "ls-tree", "-r", "--name-only", "HEAD").split("\n")) - {""})

    def test_buildroot_sums_are_those_of_the_files(self):
        rows = [line.split() for line in (DIST / "buildroot/package/quarl/quarl.hash").read_text().splitlines()
                if not line.startswith("#")]
        wanted = {self.value("QUARL_SOURCE"), *self.value("QUARL_LICENSE_FILES").split()}
        self.assertEqual({name for _, _, name in rows}, wanted)
        for kind, digits, name in rows:
            file = self.archive if name == self.archive.name else self.source / name
            self.assertEqual((name, digest(kind, file)), (name, digits))

    def test_buildroot_finds_the_archive_and_both_packages(self):
        self.assertEqual(self.value("QUARL_VERSION"), self.version)
        self.assertEqual(Path(self.value("QUARL_SITE"), self.value("QUARL_SOURCE")).resolve(), self.archive)
        self.assertEqual((self.value("QUARL_SITE_METHOD"), self.value("IS_PACKAGE"), self.value("IS_HOST_PACKAGE")),
                         ("file", "yes", "yes"))
        self.assertEqual(self.value("QUARL_DEPENDENCIES"), "")
        self.assertEqual(self.value("QUARL_DEPENDENCIES", "BR2_PACKAGE_HOST_QUARL=y"), "host-quarl")
        for settings, desk in ((["BR2_i386=y"], "i686"), (["BR2_ARM_EABIHF=y"], "armhf"), ([], "armel")):
            self.assertEqual(self.value("QUARL_DESK", *settings), desk)

    def test_buildroot_call_installs_the_library_alone(self):
        toolchain = self.scratch / "toolchainfile.cmake"
        toolchain.write_text("set(CMAKE_SYSTEM_NAME Linux)\nset(CMAKE_SYSTEM_VERSION 1)\nset(CMAKE_SYSTEM_PROCESSOR armv7l)\n"
                             'set(CMAKE_C_FLAGS "-Os -g0 -D_FILE_OFFSET_BITS=64" CACHE STRING "")\n'
                             'set(CMAKE_CXX_FLAGS "-Os -g0 -D_FILE_OFFSET_BITS=64" CACHE STRING "")\n'
                             "set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)\nset(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)\n")
        output("cmake", ".", f"-DCMAKE_TOOLCHAIN_FILE={toolchain}", "-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_COLOR_MAKEFILE=OFF",
               "-DBUILD_DOC=OFF", "-DBUILD_EXAMPLES=OFF", "-DBUILD_TESTING=OFF", "-DBUILD_SHARED_LIBS=ON",
               "-DCMAKE_BUILD_TYPE=Release", *self.value("QUARL_CONF_OPTS").split(), cwd=self.source)
        output("make", "-j2", cwd=self.source)
        output("make", "install/fast", cwd=self.source, env=os.environ | {"DESTDIR": str(self.scratch / "target")})
        there = {str(file.relative_to(self.scratch / "target")) for file in (self.scratch / "target").rglob("*") if file.is_file()}
        self.assertIn("usr/lib/libquarl.so", there)
        self.assertIn("usr/include/quarl.h", there)
        kinds = r"usr/(lib/libquarl\.so|include/quarl\.h|lib/pkgconfig/quarl\.pc|lib/cmake/quarl/[\w-]+\.cmake|share/.*)"
        self.assertEqual([name for name in there if not re.fullmatch(kinds, name)], [])

    def test_seam_is_chosen_by_the_configuration(self):
        self.assertIn("-DQUARL_SEAM=layer", self.value("QUARL_CONF_OPTS"))
        self.assertIn("-DQUARL_SEAM=native", self.value("QUARL_CONF_OPTS", "BR2_PACKAGE_QUARL_SEAM_NATIVE=y"))

    def test_menu_and_its_comment_have_the_same_conditions(self):
        text = (DIST / "buildroot/package/quarl/Config.in").read_text().replace("\\\n", " ")
        body = re.search(r"config BR2_PACKAGE_QUARL\n(.*?)\thelp", text, re.S)[1]
        comment = text[text.index("\ncomment"):]
        for symbol in set(re.findall(r"BR2_\w+", body)) | {"BR2_STATIC_LIBS", "BR2_USE_MMU", "BR2_TOOLCHAIN_HAS_THREADS"}:
            self.assertIn(symbol, body)
            self.assertIn(symbol, comment)
        for file in (DIST / "buildroot").rglob("Config.in"):  # the menu's language: tabs, and a help of two blanks more
            self.assertEqual([line for line in file.read_text().splitlines() if line.startswith(" ")], [])

    def test_recipe_says_what_a_recipe_must(self):
        [file] = (DIST / "yocto").rglob("*.bb")
        self.assertEqual(file.name, f"quarl_{self.version}.bb")
        text = file.read_text().replace("\\\n", " ")
        values = dict(re.findall(r'^([A-Z][\w:${}-]*) *\??\+?= *"(.*)"$', text, re.M))
        for name in ("SUMMARY", "HOMEPAGE", "LICENSE", "SRC_URI", "EXTRA_OECMAKE", "FILES:${PN}", "FILES:${PN}-dev"):
            self.assertTrue(values[name], name)
        self.assertEqual((values["LICENSE"], values["BBCLASSEXTEND"]), ("Apache-2.0", "native nativesdk"))
        [(name, digits)] = re.findall(r"file://(\w+);md5=(\w+)", values["LIC_FILES_CHKSUM"])
        self.assertEqual(digest("md5", self.source / name), digits)
        self.assertEqual(values["SRCREV"], output("git", "-C", ROOT, "rev-parse", "HEAD").strip())
        known = (ROOT / "cmake/target.cmake").read_text() + (ROOT / "srcs/quarl/CMakeLists.txt").read_text()
        for option in re.findall(r"-D(QUARL_\w+)=", text):
            self.assertIn(option, known)


if __name__ == "__main__":
    unittest.main()
