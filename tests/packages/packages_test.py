#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What users get: the tree of `make install`, moved elsewhere, and the packages, installed into roots that hold nothing
but Debian's packages. Needs the builds of all targets and `scripts/packages`; InstalledPackages also bubblewrap and
`scripts/fetch-programs amd64 i386 armhf`."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
PACKAGES = ROOT / "build/packages"
VERSION = re.search(r"^project\(quarl VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
COMPILER = {"i686": "i686-linux-gnu-gcc", "armhf": "arm-linux-gnueabihf-gcc"}
FLAGS = {target: ["-O0", "-g", "-fno-builtin", "-fno-omit-frame-pointer", "-no-pie", "-pthread"] for target in COMPILER}
FLAGS["armhf"] += ["-marm", "-mapcs-frame"]  # as the demo is built
FOLDER = {"i686": "i386-linux-gnu", "armhf": "arm-linux-gnueabihf", "armel": "arm-linux-gnueabi"}
MOST_INSTALLED = 5 * 1000 * 1000  # bytes
ENVIRONMENT = {key: value for key, value in os.environ.items() if not key.startswith(("QUARL_", "LD_", "CMAKE_"))}


def run(*command, fails=False, **environment):
    """Output and errors of a command, as one text."""
    done = subprocess.run([str(part) for part in command], env=ENVIRONMENT | environment, text=True, timeout=300,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
    if (done.returncode != 0) != fails:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}")
    return done.stdout


def scratch(case):
    folder = tempfile.TemporaryDirectory(prefix="quarl-packages-")
    case.addClassCleanup(folder.cleanup)
    return Path(folder.name)


def plant(target, folder):
    """The program of the README's first example."""
    program = folder / "planted"
    run(COMPILER[target], *FLAGS[target], ROOT / "demo/planted.c", "-o", program)
    return program


class Story(unittest.TestCase):
    def assert_story(self, told):
        self.assertRegex(told, r"quarl: planted\[\d+\]: 1 byte written behind a block of 12 bytes\n")
        line = 1 + (ROOT / "demo/planted.c").read_text().splitlines().index("  char* copy = malloc(strlen(name));")
        self.assertRegex(told, rf"copy_name +planted\.c:{line}\n")
        self.assertIn("quarl: 1 fault", told)


class InstalledTree(Story):
    """Everything is asked of the tree in another place than the one that it was installed for."""

    @classmethod
    def setUpClass(cls):
        cls.folder = scratch(cls)
        run(ROOT / "scripts/install", DESTDIR=str(cls.folder / "staged"), PREFIX="/opt/first")
        cls.tree = cls.folder / "second"
        shutil.move(cls.folder / "staged/opt/first", cls.tree)

    def test_has_no_more_than_it_should(self):
        files = [path for path in self.tree.rglob("*") if path.is_file()]
        self.assertLess(sum(path.stat().st_size for path in files), MOST_INSTALLED)
        places = {str(path.relative_to(self.tree)) for path in files}
        for target, folder in FOLDER.items():
            self.assertLessEqual({f"lib/{folder}/libquarl.so", f"lib/{folder}/pkgconfig/quarl.pc", f"lib/quarl/{target}/libquarl.so"},
                                 places)
        self.assertLessEqual({"bin/quarl", "include/quarl.h", "share/man/man1/quarl.1", "share/man/man7/libquarl.7",
                              "share/quarl/gdb/quarl.py", "share/bash-completion/completions/quarl",
                              "share/zsh/site-functions/_quarl", "share/fish/vendor_completions.d/quarl.fish"}, places)
        for path in files:
            if path.suffix in (".pc", ".cmake"):
                self.assertNotRegex(path.read_text(), rf"/opt/first|{ROOT}")

    def test_tool_finds_its_libraries(self):
        self.assertEqual(run(self.tree / "bin/quarl", "--version"), f"quarl {VERSION}\n")
        (self.folder / "link").symlink_to(self.tree / "bin/quarl")
        for target in COMPILER:
            with self.subTest(target):
                told = run(self.folder / "link", "run", "--logs", self.folder / "logs", "--", plant(target, self.folder),
                           "tail-overrun", fails=True)
                self.assert_story(told)
                [loaded] = re.findall(r'"event": ?"loaded".*', (self.folder / "logs/events.jsonl").read_text())
                self.assertRegex(loaded, f'"version": ?"{VERSION}"')
                self.assertIn("libquarl.so", (self.folder / "logs/events.jsonl").read_text())
                self.assertIn(f"{self.tree}/lib/quarl/{target}/libquarl.so", (self.folder / "logs/events.jsonl").read_text())
                shutil.rmtree(self.folder / "logs")

    def assert_calls(self, target, program):
        libraries = self.tree / "lib" / FOLDER[target]
        emulator = ["qemu-arm", "-L", "/usr/arm-linux-gnueabihf", "-E", f"LD_LIBRARY_PATH={libraries}"] if target == "armhf" else []
        surroundings = {} if emulator else {"LD_LIBRARY_PATH": str(libraries)}
        said = run(*emulator, program, QUARL_CONTRACT="libc", QUARL_LOG_DIR=str(self.folder / "called"), **surroundings)
        self.assertIn("slop over", said)
        self.assertEqual(said.splitlines()[-1], VERSION)

    def test_programs_that_call_it_by_pkg_config(self):
        for target, compiler in COMPILER.items():
            with self.subTest(target):
                where = {"PKG_CONFIG_LIBDIR": str(self.tree / "lib" / FOLDER[target] / "pkgconfig")}
                self.assertEqual(run("pkg-config", "--modversion", "quarl", **where), f"{VERSION}\n")
                flags = run("pkg-config", "--cflags", "--libs", "quarl", **where).split()
                program = self.folder / f"caller-{target}"
                run(compiler, HERE / "caller.c", "-o", program, *flags)
                self.assert_calls(target, program)

    def test_programs_that_call_it_by_cmake(self):
        for target in COMPILER:
            with self.subTest(target):
                build = self.folder / f"cmake-{target}"
                run("cmake", "-S", HERE, "-B", build, "--toolchain", ROOT / f"cmake/toolchains/{target}.cmake",
                    f"-Dquarl_DIR={self.tree / 'lib' / FOLDER[target] / 'cmake/quarl'}")
                run("cmake", "--build", build)
                self.assert_calls(target, build / "caller")

    def test_completions(self):
        fish = self.tree / "share/fish/vendor_completions.d/quarl.fish"
        said = run("fish", "--no-config", "-c", f"source {fish}; complete -C 'quarl r'; complete -C 'quarl run --lo'",
                   HOME=str(self.folder))
        words = {line.split("\t")[0] for line in said.splitlines()}
        self.assertLessEqual({"run", "release", "report", "--logs"}, words)
        asked = 'compadd() { shift; print -l -- "$@" }; _files() { :; }; words=(quarl run --lo); CURRENT=3; ' \
                'compdef() { :; }; source $1; _quarl'
        self.assertIn("--logs", run("zsh", "-f", "-c", asked, "zsh", self.tree / "share/zsh/site-functions/_quarl").split())


def packages(architecture):
    return sorted((ROOT / "build/debs" / architecture / "archives").glob("*.deb"))


def root_of(case, native, foreign=()):
    """An empty root with what Debian's packages of a desk or board hold, which dpkg takes for installed."""
    root = scratch(case) / "root"
    shutil.copytree(ROOT / "build/sysroot" / native, root, symlinks=True)
    state = root / "var/lib/dpkg"
    for folder in ("info", "updates", "triggers"):
        (state / folder).mkdir(parents=True, exist_ok=True)
    (state / "arch").write_text("".join(f"{name}\n" for name in (native, *foreign)))
    records = [run("dpkg-deb", "-f", deb).rstrip("\n") for deb in packages(native)]
    (state / "status").write_text("".join(
        re.sub(r"^(Package: .*)$", r"\1\nStatus: install ok installed", record, count=1, flags=re.MULTILINE) + "\n\n"
        for record in records))
    return root


def install(root, package):
    """Refused when something that the package depends on is not there."""
    run("dpkg", f"--root={root}", "--force-not-root", "--force-architecture", "--force-script-chrootless", "--no-triggers", "-i", package)
    return package


def in_room(root, work, *command, **environment):
    """A command's output in a room with that root, without a network or anything else of this machine but /work."""
    setting = [part for name, value in environment.items() for part in ("--setenv", name, value)]
    laid = []
    for path in sorted(root.iterdir()):
        laid += ["--symlink", path.readlink(), f"/{path.name}"] if path.is_symlink() else ["--ro-bind", path, f"/{path.name}"]
    done = subprocess.run([str(part) for part in (
        "bwrap", "--unshare-all", "--die-with-parent", *laid, "--proc", "/proc", "--dev", "/dev", "--tmpfs", "/tmp",
        "--bind", work, "/work", "--chdir", "/work", "--clearenv", "--setenv", "PATH", "/usr/bin:/bin", "--setenv",
        "HOME", "/tmp", *setting, *command)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=300)
    return done.stdout


class PackageFiles(unittest.TestCase):
    def test_lintian(self):
        packages = sorted(PACKAGES.glob("*.deb"))
        self.assertEqual(len(packages), 8)
        self.assertNotRegex(run("lintian", "--fail-on", "error,warning", *packages), r"(?m)^[EW]:")


class InstalledPackages(Story):
    def test_desk(self):
        """The first example of the README, where nothing but the package and what it depends on is installed."""
        root = root_of(type(self), "amd64")
        install(root, PACKAGES / f"quarl_{VERSION}_amd64.deb")
        self.assertEqual(in_room(root, HERE, "quarl", "--version"), f"quarl {VERSION}\n")
        for target in COMPILER:
            with self.subTest(target):
                work = scratch(type(self))
                plant(target, work)
                self.assert_story(in_room(root, work, "quarl", "run", "--", "./planted", "tail-overrun"))

    def test_boards(self):
        """A board's library tells events; the desk, which has the program's sources, tells their story."""
        for target, architecture in (("i686", "i386"), ("armhf", "armhf")):
            with self.subTest(target):
                root, work = root_of(type(self), architecture), scratch(type(self))
                install(root, PACKAGES / f"libquarl_{VERSION}_{architecture}.deb")
                for name in ("share/doc/libquarl/examples/quarlcfg.ini", "share/man/man7/libquarl.7.gz", "include/quarl.h"):
                    self.assertTrue((root / "usr" / name).is_file(), name)
                program, library = plant(target, work), f"/usr/lib/{FOLDER[target]}/libquarl.so"
                settings = {"QUARL_EVENTS": "events.jsonl", "QUARL_CONTRACT": "libc", "QUARL_MESSAGES": "none"}
                if target == "i686":
                    in_room(root, work, "./planted", "exit-overrun", LD_PRELOAD=library, **settings)
                else:
                    emulated = ["qemu-arm", "-L", root, "-E", f"LD_PRELOAD={library}", program, "exit-overrun"]
                    subprocess.run(emulated, env=settings, cwd=work, timeout=300, check=False, stdout=subprocess.DEVNULL)
                told = run(ROOT / "build/host/quarl", "story", "--sysroot", root, "--debug-dir", work, work / "events.jsonl")
                self.assertRegex(told, r"planted\[\d+\]: 1 byte written behind a block of 12 bytes\n")
                self.assertRegex(told, r"found +when the program ended")


if __name__ == "__main__":
    unittest.main(verbosity=2)
