"""The room that a program's work is done in: a user, mount, process and network namespace of its own.

On i686 its root is the unpacked Debian tree, and every process in it sees the checker. On armhf it is this machine's,
with the emulated programs first in the path; only these see the checker. In both the work lies in /work, the user is
nobody in particular, ports are the room's own, and every process that is still there when the work ends, ends with it.
"""

import shlex
import shutil
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))

import sysroot

WORK, CHECKER, LOGS = "/work", "/quarl", "/logs"
USER = "1000"
ETC = Path(__file__).resolve().parent / "etc"  # who the users are, and where names come from
PATHS = {"i686": "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin", "armhf": f"{CHECKER}/bin:/usr/bin:/bin"}

# Said before every work: the first command that fails ends it; `await COMMAND` tries until it succeeds.
PRELUDE = """set -eu
await() {
  tries=0
  until "$@" >/tmp/await 2>&1; do
    tries=$((tries + 1))
    if [ $tries = 1200 ]; then echo "waited in vain for: $*"; cat /tmp/await; exit 99; fi
    sleep 0.05
  done
}
"""


def furnish(checker, target, program, checked, lines):
    """Fills the folder that the room sees as /quarl: library, configuration and the commands to be emulated."""
    checker.mkdir()
    (checker / "quarlcfg.ini").write_text("".join(f"{line}\n" for line in lines))
    shutil.copy(sysroot.library(target), checker / "libquarl.so")
    (checker / "bin").mkdir()
    for name in program.armhf if target == "armhf" else ():
        preload = [f"{CHECKER}/libquarl.so"] if checked else []
        line, _ = sysroot.command(target, sysroot.debian_program(target, name), {}, preload)
        command = checker / "bin" / name
        command.write_text(f'#!/bin/sh\nexec {shlex.join(line)} "$@"\n')
        command.chmod(0o755)


def root_of(target):
    """Arguments that lay out the room's file system, without /work and /quarl."""
    root = sysroot.sysroot(target) if target == "i686" else Path("/")
    laid = {"proc": ["--proc", "/proc"], "dev": ["--dev", "/dev"], "tmp": ["--tmpfs", "/tmp"], "run": ["--tmpfs", "/run"],
            "etc": []}
    for path in sorted(root.iterdir()):
        if path.is_symlink():
            laid.setdefault(path.name, ["--symlink", str(path.readlink()), f"/{path.name}"])
        elif path.is_dir():
            laid.setdefault(path.name, ["--ro-bind", str(path), f"/{path.name}"])
    arguments = [argument for part in laid.values() for argument in part]
    for path in sorted((root / "etc").iterdir()):
        if not (ETC / path.name).exists() and path.exists():
            arguments += ["--ro-bind", str(path), f"/etc/{path.name}"]
    for path in sorted(ETC.iterdir()):
        arguments += ["--ro-bind", str(path), f"/etc/{path.name}"]
    if target != "i686":  # programs and libraries are named by their places on this machine
        arguments += ["--ro-bind", str(sysroot.ROOT), str(sysroot.ROOT)]
    return arguments


def command(target, program, scratch, checked, size):
    """The argument list that does a program's work in the folders work, checker (seen as /quarl) and logs below `scratch`."""
    work, checker, logs = scratch / "work", scratch / "checker", scratch / "logs"
    environment = {"PATH": PATHS[target], "HOME": WORK, "LC_ALL": "C.UTF-8", "TZ": "UTC", "USER": "worker", "SIZE": size,
                   "TREE": "" if target == "i686" else str(sysroot.sysroot(target)), **program.environment}
    if checked:
        environment |= {"QUARL_CFG_FILE": f"{CHECKER}/quarlcfg.ini", "QUARL_CONTRACT": "libc", "QUARL_LOG_DIR": LOGS}
        if target == "i686":
            environment["LD_PRELOAD"] = f"{CHECKER}/libquarl.so"
    arguments = ["bwrap", "--unshare-all", "--die-with-parent", "--new-session", "--uid", USER, "--gid", USER,
                 "--hostname", "room", "--clearenv", *root_of(target)]
    arguments += ["--bind", str(work), WORK, "--ro-bind", str(checker), CHECKER, "--bind", str(logs), LOGS, "--chdir", WORK]
    for name, value in environment.items():
        arguments += ["--setenv", name, value]
    return [*arguments, "/bin/sh", "-c", PRELUDE + program.work]
