# SPDX-License-Identifier: Apache-2.0
"""quarl frames: which files get a table, what it is called, what is told of them."""

import os
import random
import re
import shutil
import subprocess
import unittest

from tables import COMPILERS, Table, TablesTest

PROGRAM = """
#include <alloca.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
__attribute__((noinline)) void* leaf(size_t size) { void* made = malloc(size); memset(made, 1, size); return made; }
__attribute__((noinline)) void* stacked(int size) { char* room = alloca(size); memset(room, 0, size); return leaf(room[0] + 8); }
__attribute__((noinline)) void* variadic(int count, ...) {
  va_list all; va_start(all, count); void* made = leaf(va_arg(all, int)); va_end(all); return made; }
__attribute__((noinline)) int cases(int which) {
  switch (which) { case 0: free(leaf(1)); return 5; case 1: free(stacked(9)); return 7; case 2: return which * abs(which);
    case 3: free(variadic(1, 4)); return 9; case 4: free(leaf(77)); return 11; default: return 1; } }
int main(int count, char** words) { free(stacked(count * 100)); return cases(count) + (words == 0); }
"""


# A jump by way of lr, behind its cases a leaf; a call that does not return, behind it a leaf; a variadic function;
# ARM code that goes on elsewhere, behind it Thumb code.
UNNAMED = r"""
__asm__(".syntax unified\n.thumb\n.thumb_func\n.global cases\n"
        "cases: push {r4, lr}\ncmp r0, #1\nbhi 3f\nadr.w lr, 1f\nldr.w r1, [lr, r0, lsl #2]\nadd lr, r1\nbx lr\n"
        ".p2align 2\n1: .word 2f - 1b + 1, 3f - 1b + 1\n"
        "2: add r0, #1\ncase_call: bl cases\n3: pop {r4, pc}\n"
        "ldr r0, [r0]\nbx lr\n"
        "push {r3, r4, r5, lr}\nlast_call: bl cases\n"
        "ldr r0, [r0, #8]\nbx lr\n"
        "push {r1, r2, r3}\nldr r1, [r0]\npush {r4, lr}\nsub sp, #4\nvariadic_call: bl cases\n"
        "add sp, #4\npop.w {r4, lr}\nadd sp, #12\nbx lr\n"
        ".p2align 2\n.arm\n.global other\n.type other, %function\nother: add r0, r0, #1\nbx r3\n"
        ".thumb\nldr r0, [r0]\npush {r4, lr}\nthumb_call: bl cases\npop {r4, pc}\n");
int cases(int), other(int);
int main(int argc, char** argv) { return cases(argc) + other(argc); }
"""


class Tables(TablesTest):
    def test_a_table_is_named_by_build_id_and_is_sound(self):
        for target, prefix in COMPILERS.items():
            with self.subTest(target):
                program = self.compiled(target, PROGRAM, "-Wl,--build-id=0x0123456789abcdef")
                answer = self.answer("--sysroot", self.folder, program)
                self.assertEqual(answer["files"][0]["table"], "0123456789abcdef.frames")
                table = self.table_of(answer["files"][0])
                self.assertTrue(table.sound)
                self.assertEqual((table.magic, table.version, table.identity), (b"QRFT", 1, "0123456789abcdef"))
                self.assertEqual(table.machine, 3 if target == "i686" else 40)
                self.assertEqual(table.path, f"/{program.name}")
                self.assertEqual(table.addresses, sorted(table.addresses))

    def test_a_file_without_build_id_is_known_by_its_code(self):
        names = set()
        for text in (PROGRAM, PROGRAM.replace("77", "78")):
            program = self.compiled("i686", text, "-Wl,--build-id=none")
            first, second = (self.answer(program)["files"][0]["table"] for _ in range(2))
            self.assertEqual(first, second)
            self.assertRegex(first, r"^text-[0-9a-f]{16}\.frames$")
            names.add(first)
        self.assertEqual(len(names), 2)

    def test_every_source_finds_the_frames_of_all_calls(self):
        """The same program with unwind information and stripped of it: the rules are the same at each call."""
        for target, prefix in COMPILERS.items():
            for options in ((), ("-fno-omit-frame-pointer",), ("-Os", "-fno-pie", "-no-pie")):
                with self.subTest(target=target, options=options):
                    program = self.compiled(target, PROGRAM, "-g", "-fno-asynchronous-unwind-tables", *options)
                    whole = self.answer("--compare", program)["files"][0]
                    agreement = whole["agreement"]["debug_frame"]
                    self.assertEqual(agreement["differences"], [])
                    self.assertGreater(agreement["same"], 10)
                    bare = self.folder / "bare"
                    subprocess.run([f"{prefix}strip", program, "-o", bare], check=True)
                    stripped = self.answer(bare)["files"][0]["coverage"]
                    self.assertGreater(stripped["by"]["derived"], 6)
                    self.assertEqual(stripped["by"]["debug_frame"], 0)
                    # Frames of _start are realigned on i386, and it keeps nothing of its caller's.
                    self.assertLessEqual(stripped["calls"] - stripped["covered"], 2 if target == "armhf" else 3)

    def test_functions_are_told_from_each_other_without_symbols(self):
        program = self.compiled("armhf", UNNAMED, "-mthumb")
        names = subprocess.run([COMPILERS["armhf"] + "nm", program], check=True, capture_output=True, text=True).stdout
        at = {name: int(address, 16) & ~1 for address, _, name in re.findall(r"^(\w+) (\w) (\w+_call)$", names, re.M)}
        subprocess.run([COMPILERS["armhf"] + "strip", program], check=True)
        table = self.table_of(self.answer(program)["files"][0])
        self.assertEqual({name: table.rule(address + 4) for name, address in at.items()},
                         {"case_call": ("sp", 8, -4), "last_call": ("sp", 16, -4), "variadic_call": ("sp", 24, -16),
                          "thumb_call": ("sp", 8, -4)})

    def test_debug_information_is_found_by_build_id_and_by_link(self):
        prefix = COMPILERS["armhf"]
        program = self.compiled("armhf", PROGRAM, "-g", "-Wl,--build-id=0x0123456789abcdef")
        debug = self.folder / "debug/.build-id/01/23456789abcdef.debug"
        debug.parent.mkdir(parents=True)
        subprocess.run([f"{prefix}objcopy", "--only-keep-debug", program, debug], check=True)
        subprocess.run([f"{prefix}strip", program], check=True)
        self.assertEqual(self.answer(program)["total"]["by"]["debug_frame"], 0)
        self.assertGreater(self.answer("--debug-dir", self.folder / "debug", program)["total"]["by"]["debug_frame"], 10)
        linked = debug.rename(self.folder / "linked.debug")
        subprocess.run([f"{prefix}objcopy", f"--add-gnu-debuglink={linked.name}", program], check=True, cwd=self.folder)
        self.assertGreater(self.answer("--debug-dir", self.folder, program)["total"]["by"]["debug_frame"], 10)


class Rootfs(TablesTest):
    def setUp(self):
        super().setUp()
        self.root = self.folder / "root"
        (self.root / "usr/lib").mkdir(parents=True)

    def test_what_is_no_program_is_passed_over(self):
        shutil.move(self.compiled("i686", PROGRAM), self.root / "usr/lib/program")
        outside = self.compiled("i686", PROGRAM, "-Wl,--build-id=none")
        (self.root / "usr/lib/away").symlink_to(outside.parent)
        (self.root / "usr/lib/link").symlink_to(outside)
        (self.root / "loop").symlink_to(self.root)
        (self.root / "script").write_text("#!/bin/sh\n")
        (self.root / "empty").touch()
        os.mkfifo(self.root / "pipe")
        shutil.copy("/bin/true", self.root / "other")
        answer = self.answer(self.root)
        self.assertEqual([file["target_path"] for file in answer["files"]], ["/usr/lib/program"])
        self.assertEqual(len(list(self.tables.iterdir())), 1)

    def test_a_broken_file_is_named_and_the_others_get_tables(self):
        good = self.compiled("armhf", PROGRAM)
        shutil.copy(good, self.root / "good")
        (self.root / "short").write_bytes(good.read_bytes()[:40])
        (self.root / "half").write_bytes(good.read_bytes()[:700])
        out, error = self.frames(self.root)
        self.assertIn("/good", out)
        self.assertRegex(error, r"^quarl: .*/root/half is cut short\nquarl: .*/root/short is damaged\n$")
        _, error = self.frames(self.root / "half", status=1)
        self.assertIn("half is cut short", error)
        (self.root / "libc.so").write_text("GROUP ( /lib/libc.so.6 )")  # a script for the linker
        self.assertIn("libc.so is no ELF file", self.frames(self.root / "libc.so", status=1)[1])
        self.assertEqual(self.frames("nowhere", status=1)[1], "quarl: nowhere: no such file\n")

    def test_random_damage_ends_nothing(self):
        chance = random.Random(12)
        for target in COMPILERS:
            whole = self.compiled(target, PROGRAM, "-g").read_bytes()
            for number in range(60):
                data = bytearray(whole)
                for _ in range(chance.choice((1, 8, 200))):
                    # Half of the damage hits the headers.
                    data[chance.randrange(chance.choice((0x200, len(data))))] = chance.randrange(256)
                (self.root / f"{target}{number}").write_bytes(data)
        for file in self.answer(self.root)["files"]:
            if "table" in file:
                self.assertTrue(Table(self.tables / file["table"]).sound)


if __name__ == "__main__":
    unittest.main()
