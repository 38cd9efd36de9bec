# SPDX-License-Identifier: Apache-2.0
"""Where a program's work is done.

In a room: a user, mount, process and network namespace of its own, made by bubblewrap, whose root is the unpacked Debian
tree of i686. Every process in it sees the checker, the user is nobody in particular, ports are the room's own, and
every process that is still there when the work ends, ends with it.

Without a room: on this machine as it is, with the commands that a program names first in the path; only these are of the
target, and only these see the checker.
"""

import shlex
import shutil
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))

import sysroot

WORK, CHECKER, LOGS = "/work", "/quarl", "/logs"
USER = "1000"
ETC = Path(__file__).resolve().parent / "etc"  # who the users are, and where names come from
PLACE = ("--unshare-all", "--die-with-parent", "--new-session")

# Said before every work in a room: the first command that fails ends it; `await COMMAND` tries until it succeeds.
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


def fault():
    """Why no room can be made here, or nothing."""
    if not shutil.which("bwrap"):
        return "bubblewrap (bwrap) is not installed"
    tried = subprocess.run(["bwrap", *PLACE, "--ro-bind", "/", "/", "true"], capture_output=True, timeout=60)
    return tried.stderr.decode(errors="replace").strip() if tried.returncode else ""


def furnish(checker, setting):
    """Puts library and configuration into a folder."""
    checker.mkdir()
    (checker / "quarlcfg.ini").write_text("".join(f"{line}\n" for line in setting.lines))


def surroundings(program, setting, home, tree):
    return {"HOME": home, "LC_ALL": "C.UTF-8", "TZ": "UTC", "USER": "worker", "SIZE": setting.size(), "TREE": tree,
            **program.environment}


def checker_environment(setting, checker, logs):
    """What tells the checker its configuration, which folder its logs go to and what to hold programs to."""
    environment = {"QUARL_LOG_DIR": logs}
    if setting.lines:
        environment["QUARL_CFG_FILE"] = f"{checker}/quarlcfg.ini"
    if setting.contract:
        environment["QUARL_CONTRACT"] = setting.contract
    if setting.ends:
        environment["QUARL_END_SIGNALS"] = "1"
    if setting.events:
        environment |= {"QUARL_EVENTS": f"{logs}/events", "QUARL_MESSAGES": "none"}
    return environment if setting.checked else {}


def root():
    """Arguments that lay out the room's file system, without /work and /quarl."""
    tree = sysroot.sysroot("i686")
    laid = {"proc": ["--proc", "/proc"], "dev": ["--dev", "/dev"], "tmp": ["--tmpfs", "/tmp"], "run": ["--tmpfs", "/run"],
            "etc": []}
    for path in sorted(tree.iterdir()):
        if path.is_symlink():
            laid.setdefault(path.name, ["--symlink", str(path.readlink()), f"/{path.name}"])
        elif path.is_dir():
            laid.setdefault(path.name, ["--ro-bind", str(path), f"/{path.name}"])
    arguments = [argument for part in laid.values() for argument in part]
    for path in sorted((tree / "etc").iterdir()):
        if not (ETC / path.name).exists() and path.exists():
            arguments += ["--ro-bind", str(path), f"/etc/{path.name}"]
    for path in sorted(ETC.iterdir()):
        arguments += ["--ro-bind", str(path), f"/etc/{path.name}"]
    return arguments


def command_in_room(program, setting, scratch):
    """The argument list and environment that do a program's work in the room."""
    work, checker, logs = scratch / "work", scratch / "checker", scratch / "logs"
    furnish(checker, setting)
    shutil.copy(sysroot.library("i686"), checker / "libquarl.so")
    inside = surroundings(program, setting, WORK, "") | {"PATH": "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"}
    inside |= checker_environment(setting, CHECKER, LOGS)
    if setting.checked:
        inside["LD_PRELOAD"] = f"{CHECKER}/libquarl.so"
    arguments = ["bwrap", *PLACE, "--uid", USER, "--gid", USER, "--hostname", "room", "--clearenv", *root()]
    arguments += ["--bind", str(work), WORK, "--ro-bind", str(checker), CHECKER, "--bind", str(logs), LOGS, "--chdir", WORK]
    for name, value in inside.items():
        arguments += ["--setenv", name, value]
    return [*arguments, "/bin/sh", "-c", PRELUDE + program.work], None


def command_without(target, program, setting, scratch):
    """The argument list and environment that do a program's work on this machine."""
    checker = scratch / "checker"
    furnish(checker, setting)
    (checker / "bin").mkdir()
    for name in program.alone:
        preload = [sysroot.library(target)] if setting.checked else []
        line, seen = sysroot.command(target, sysroot.debian_program(target, name), {}, preload)
        assignments = "".join(f"{key}={shlex.quote(value)} " for key, value in seen.items())
        command = checker / "bin" / name
        command.write_text(f'#!/bin/sh\n{assignments}exec {shlex.join(line)} "$@"\n')
        command.chmod(0o755)
    outside = surroundings(program, setting, str(scratch / "work"), str(sysroot.sysroot(target)))
    outside |= {"PATH": f"{checker}/bin:/usr/bin:/bin"} | checker_environment(setting, checker, scratch / "logs")
    return ["/bin/sh", "-c", "set -eu\n" + program.work], outside


def needed(target, setting):
    """Whether the work is done in a room: there are none of emulated programs, whose emulator is of this machine."""
    return setting.room and target == "i686"


def command(target, program, setting, scratch):
    """How to do a program's work in the folders work and logs below `scratch`; `checker` is made there."""
    if needed(target, setting):
        return command_in_room(program, setting, scratch)
    return command_without(target, program, setting, scratch)
