#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Builds the library from the source archive as others would, with many compilers and flags, and runs what was built.

run.py [--check] [--keep] [VARIANT]...: all variants, those of `make check`, or those named. A build sees its compiler,
cmake, make or ninja and the unpacked archive, and nothing else of this machine's programs. Compilers of other Debians come
from the trees of scripts/fetch-programs --suite. What was built runs the victims of build/TARGET, which must be there.
"""

import argparse
import filecmp
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from variants import ROOT, SUITE, TRIPLET, VARIANTS

WORK = ROOT / "build" / "building"
TOOLS = ("cmake", "ninja", "make", "sh", "bwrap", "uname")  # uname: cmake asks it what it runs on
JOBS = os.environ.get("JOBS", str(os.cpu_count()))


class Failure(Exception):
    pass


def run(line, environment=None, accept=(0,), **options):
    done = subprocess.run([*map(str, line)], env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **options)
    if done.returncode not in accept:
        raise Failure(f"{' '.join(map(str, line))}: ended with {done.returncode}\n{done.stdout[-6000:]}")
    return done.stdout


def compiler_tree(suite):
    tree = ROOT / "build" / "sysroot" / f"{suite}-amd64"
    if not (tree / ".complete").exists():
        raise Failure(f"{tree.relative_to(ROOT)} is not there: scripts/fetch-programs --suite {suite} amd64")
    return tree


def compiler(variant, language):
    """The path of a variant's compiler; one of another Debian is a script that starts it in a room with its own libraries.
    With old headers the room hides those of the compiler's own C library, which it would look at before any sysroot."""
    triplet = TRIPLET[variant.target]
    suite = SUITE[variant.gcc]
    if suite is None:
        return shutil.which(f"{triplet}-{language}")
    tree, name = compiler_tree(suite), f"{triplet}-{language}-{variant.gcc}"
    script = WORK / "bin" / (f"bare-{name}" if variant.old_headers else name)
    room = [f"--ro-bind {tree}/{folder} /{folder}" if (tree / folder).exists() else f"--symlink usr/{folder} /{folder}"
            for folder in ("usr", "lib", "lib64")]
    if variant.old_headers:
        own, plus = f"/usr/{triplet}", f"/usr/{triplet}/include/c++"
        room += [f"--tmpfs {own}/include --tmpfs {own}/lib --ro-bind {tree}{plus} {plus}"]
    script.parent.mkdir(parents=True, exist_ok=True)
    script.write_text(f"#!/bin/sh\nexec bwrap {' '.join(room)} --dev /dev --proc /proc --bind /tmp /tmp --bind {WORK} {WORK} "
                      f"--chdir \"$PWD\" /usr/bin/{name} \"$@\"\n")
    script.chmod(0o755)
    return str(script)


def narrow_environment(variant):
    """What a build gets to see, as an environment."""
    bin_folder = WORK / "bin"
    bin_folder.mkdir(parents=True, exist_ok=True)
    for tool in TOOLS:
        link = bin_folder / tool
        if not link.exists():
            link.symlink_to(shutil.which(tool))
    environment = {"PATH": str(bin_folder), "HOME": "/nonexistent", "LC_ALL": "C"}
    if not variant.old_headers:
        environment |= {"CC": compiler(variant, "gcc"), "CXX": compiler(variant, "g++"), "CFLAGS": variant.flags,
                        "CXXFLAGS": variant.flags, "LDFLAGS": variant.link_flags}
    return environment


def old_sysroot(variant):
    """Debian 11's C library of a target, laid out as the sysroot of a toolchain."""
    sysroot, triplet = WORK / f"sysroot-{variant.target}", TRIPLET[variant.target]
    shutil.rmtree(sysroot, ignore_errors=True)
    shutil.copytree(compiler_tree(SUITE[10]) / "usr" / triplet, sysroot / "usr" / triplet, symlinks=True)
    for folder in ("include", "lib"):
        (sysroot / "usr" / folder).symlink_to(f"{triplet}/{folder}")
    (sysroot / "lib").symlink_to("usr/lib")
    return sysroot


def toolchain_file(variant):
    """A toolchain file like that of a builder of systems: compilers, flags and a sysroot, and no target of ours."""
    file = WORK / f"toolchain-{variant.name}.cmake"
    sysroot = old_sysroot(variant)
    file.write_text(f"""set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_SYSTEM_PROCESSOR {'i686' if variant.target == 'i686' else 'armv5'})
set(CMAKE_C_FLAGS "{variant.flags}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "{variant.flags}" CACHE STRING "")
set(CMAKE_BUILD_TYPE Release CACHE STRING "")
set(CMAKE_SYSROOT {sysroot})
set(CMAKE_FIND_ROOT_PATH {sysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_C_COMPILER {compiler(variant, 'gcc')})
set(CMAKE_CXX_COMPILER {compiler(variant, 'g++')})
""")
    return file


def build(variant, source, folder, generator="Ninja"):
    """The library, built out of tree; the unpacked archive stays as it was."""
    shutil.rmtree(folder, ignore_errors=True)
    options = [f"-DCMAKE_TOOLCHAIN_FILE={toolchain_file(variant)}"] if variant.old_headers else []
    environment = narrow_environment(variant)
    said = run(["cmake", "-G", generator, "-S", source, "-B", folder, *options, *variant.options], environment)
    seam = "native" if "-DQUARL_SEAM=native" in variant.options else "layer"
    if f"libquarl.so for {variant.derived}, seam {seam}," not in said:
        raise Failure(f"{variant.name}: not taken for {variant.derived} with the seam {seam}:\n{said}")
    run(["cmake", "--build", folder, "-j", JOBS], environment)
    return folder / "libquarl.so"


def unpack(place):
    shutil.rmtree(place, ignore_errors=True)
    place.mkdir(parents=True)
    archive = max((ROOT / "build" / "dist").glob("quarl-*.tar.xz"), key=lambda file: file.stat().st_mtime)
    run(["tar", "-xf", archive, "-C", place])
    [tree] = place.iterdir()
    return tree


def exercise(variant, folder):
    """Tests of the system, with the library that was built in place of our own, on the emulated processor of the variant."""
    victims = ROOT / "build" / variant.target / "victims"
    if not victims.exists():
        raise Failure(f"{victims.relative_to(ROOT)} is not there: scripts/build {variant.target}")
    (folder / "victims").symlink_to(victims)
    environment = os.environ | {"PYTHONPATH": str(ROOT / "tests" / "support"), "QUARL_TARGET": variant.target,
                                "QUARL_BUILD": str(folder)}
    if variant.processor:
        environment["QEMU_CPU"] = variant.processor
    for test in variant.tests:
        said = run([sys.executable, "-B", ROOT / "tests" / "system" / f"{test}_test.py"], environment, accept=(0, 1))
        failed = set(re.findall(r"^(?:FAIL|ERROR): (\w+)", said, re.M))
        if failed - set(variant.lacks) or not re.search(r"^Ran \d+ tests", said, re.M):
            raise Failure(said[-6000:])


def twice(variant, first):
    """A second build, elsewhere and by other means, has the same bytes."""
    elsewhere = WORK / "another" / "and longer place"
    second = build(variant, unpack(elsewhere), WORK / "another" / "out", "Unix Makefiles")
    same = filecmp.cmp(first, second, shallow=False)
    if not same:
        raise Failure(f"{first} and {second} differ")
    shutil.rmtree(WORK / "another")


def judge(variant, source, keep):
    folder = WORK / variant.name
    library = build(variant, source, folder)
    if variant.check or variant.old_headers:
        twice(variant, library)
    if variant.tests:
        exercise(variant, folder)
    if not keep:
        shutil.rmtree(folder)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--check", action="store_true", help="those of make check")
    parser.add_argument("--keep", action="store_true", help="leave the builds in build/building")
    parser.add_argument("names", nargs="*")
    chosen = parser.parse_args()
    run([ROOT / "scripts" / "dist"])
    source = unpack(WORK / "source")
    before = run(["find", source, "-newer", source])
    failed = 0
    for variant in VARIANTS:
        if chosen.names and variant.name not in chosen.names or chosen.check and not variant.check:
            continue
        try:
            judge(variant, source, chosen.keep)
            print(f"{variant.name:24} ok", flush=True)
        except Failure as failure:
            failed += 1
            print(f"{variant.name:24} FAILED\n{failure}", flush=True)
    if run(["find", source, "-newer", source]) != before:
        failed += 1
        print("a build wrote into its sources")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
