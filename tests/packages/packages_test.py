#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What users get: the tree of `make install`, moved elsewhere, and the packages, installed into roots that hold nothing
but Debian's packages. Needs the builds of all targets and `scripts/packages`; InstalledPackages also bubblewrap and
`scripts/fetch-programs amd64 i386 armhf armel`."""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
PACKAGES = ROOT / "build/packages"
VERSION = re.search(r"^project\(quarl VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
README = (ROOT / "README.md").read_text()
COMPILER = {"i686": "i686-linux-gnu-gcc", "armhf": "arm-linux-gnueabihf-gcc", "armel": "arm-linux-gnueabi-gcc"}
ARCHITECTURE = {"i686": "i386", "armhf": "armhf", "armel": "armel"}
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


def plant(target, folder, name="first"):
    """The program of the README, built as it is there."""
    source = folder / "first.c"
    source.write_text(re.search(r"```c\n(.*?)```", README, re.DOTALL)[1])
    run(COMPILER[target], "-g", source, "-o", folder / name)
    return folder / name


class Story(unittest.TestCase):
    maxDiff = None
    TOLD = re.search(r"\$ quarl run -- \./first\n(.*?)```", README, re.DOTALL)[1]

    def masked(self, told):
        """As the README would show it, whichever process it was, and wherever its log lies."""
        process = re.search(r"quarl: \w+\[(\d+)\]", told)
        self.assertIsNotNone(process, told)
        return re.sub(r"leaks \S+/(first|qemu-arm)_", "leaks …/first_", told.replace(process[1], "6696"))

    def assert_story(self, told):
        self.assertEqual(self.masked(told), self.TOLD)


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
                           fails=True)
                self.assert_story(told)
                [loaded] = re.findall(r'"event": ?"loaded".*', (self.folder / "logs/events.jsonl").read_text())
                self.assertRegex(loaded, f'"version": ?"{VERSION}"')
                self.assertIn("libquarl.so", (self.folder / "logs/events.jsonl").read_text())
                self.assertIn(f"{self.tree}/lib/quarl/{target}/libquarl.so", (self.folder / "logs/events.jsonl").read_text())
                shutil.rmtree(self.folder / "logs")

    def assert_calls(self, target, program):
        libraries = self.tree / "lib" / FOLDER[target]
        emulator = ["qemu-arm", "-L", f"/usr/{FOLDER[target]}", "-E", f"LD_LIBRARY_PATH={libraries}"] if target != "i686" else []
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
        bash = self.tree / "share/bash-completion/completions/quarl"
        for typed, offered in (("quarl re", {"release", "reload", "report"}), ("quarl run --lo", {"--logs"})):
            words = typed.split()
            said = run("bash", "--norc", "-c", 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; '
                       'COMP_POINT=${#COMP_LINE}; $(complete -p quarl | sed "s/.*-F \\([^ ]*\\) .*/\\1/"); echo "${COMPREPLY[@]}"',
                       "bash", bash, *words)
            self.assertEqual(set(said.split()), offered)
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
                self.assert_story(in_room(root, work, "quarl", "run", "--", "./first"))

    def board_environment(self, folder):
        """What the README exports, with its files in `folder`."""
        assignments = re.search(r"^export (QUARL_EVENTS=.*)$", README, re.MULTILINE)[1].replace("/tmp", str(folder))
        return dict(assignment.split("=", 1) for assignment in assignments.split())

    def run_on_board(self, target, root, work):
        """Until a thread is stopped, and then a signal ends the program."""
        if target == "i686":
            wait = 'until grep -q \'"parked"\' events.jsonl; do sleep 0.1; done; kill -TERM $!; wait $!'
            in_room(root, work, "sh", "-c", f"LD_PRELOAD=/work/libquarl.so ./application & {wait}", **self.board_environment("/work"))
            return
        board = subprocess.Popen(["qemu-arm", "-L", root, "-E", f"LD_PRELOAD={work}/libquarl.so", work / "application"], cwd=work,
                                 env=self.board_environment(work), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            events, deadline = work / "events.jsonl", time.monotonic() + 60
            while not (events.exists() and '"parked"' in events.read_text()):
                self.assertIsNone(board.poll())
                self.assertLess(time.monotonic(), deadline, "no thread was stopped")
                time.sleep(0.05)
            board.send_signal(signal.SIGINT)
            board.wait(60)
        finally:
            board.kill()
            board.wait()

    def test_boards(self):
        """What the README says of a board: the desk prepares and tells, a root without compilers or packages runs."""
        desk = root_of(type(self), "amd64")
        install(desk, PACKAGES / f"quarl_{VERSION}_amd64.deb")
        for target, architecture in ARCHITECTURE.items():
            with self.subTest(target):
                work = scratch(type(self))
                plant(target, work, "application")
                in_room(desk, work, "quarl", "frames", "-o", "frames", "application")
                shutil.copy(desk / f"usr/lib/quarl/{target}/libquarl.so", work)
                self.run_on_board(target, ROOT / "build/sysroot" / architecture, work)
                [log] = [path.name for path in (work / "logs").glob("*_quarl.log")]
                told = self.masked(in_room(desk, work, "quarl", "story", "--debug-dir", ".", "events.jsonl"))
                self.assertEqual(told.splitlines()[:-2], self.TOLD.replace("first[", "application[").splitlines()[:-2])
                leaks = in_room(desk, work, "quarl", "report", "leaks", "--debug-dir", ".", f"logs/{log}")
                self.assertRegex(leaks, r"12 bytes in 1 block unfreed\n(?s:.*)copy_name \(first\.c:5\)\n.*main \(first\.c:10\)")

    def test_board_packages(self):
        for target, architecture in ARCHITECTURE.items():
            with self.subTest(target):
                root = root_of(type(self), architecture)
                install(root, PACKAGES / f"libquarl_{VERSION}_{architecture}.deb")
                for name in ("share/doc/libquarl/examples/quarlcfg.ini", "share/man/man7/libquarl.7.gz", "include/quarl.h",
                             f"lib/{FOLDER[target]}/libquarl.so"):
                    self.assertTrue((root / "usr" / name).is_file(), name)


if __name__ == "__main__":
    unittest.main(verbosity=2)
