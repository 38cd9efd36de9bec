# SPDX-License-Identifier: Apache-2.0
"""What the library shows to the outside and needs from it."""

import re
import subprocess
import unittest

import target

GLOBALS = {"useed_head", "useed_tail", "unuse_head", "unuse_tail", "qr_mmap_block_head", "qr_mmap_block_tail",
           "QR_PAGE_SIZE", "QR_PAGE_NUM", "QR_TRACEINFO_NUM", "QR_TRACE_MMAP", "qr_sig_num", "srv_desc",
           "srv_socket_desc", "socket_desc", "recv_buffer", "heap_limit", "stack_limit", "stack_use", "qr_process_table",
           "quarl_version"}
WEAK = {"taSymTbl", "ulSymTblSize"}
HOOKS = {f"__{name}_hook" for name in ("malloc", "free", "realloc", "memalign", "mmap", "munmap", "malloc_initialize")}
ENTRIES = {"malloc", "free", "calloc", "realloc", "reallocarray", "memalign", "aligned_alloc", "posix_memalign",
           "valloc", "pvalloc", "malloc_usable_size", "mallopt", "mmap", "mmap64", "munmap", "__register_atfork",
           "prctl", "syscall", "sbrk", "__sbrk", "brk", "dlopen", "dlmopen", "dlsym", "dlvsym", "dlclose", "sigaction",
           "signal", "bsd_signal", "ssignal", "sysv_signal", "__sysv_signal", "sigset"}
RAW = {f"ext_{name}" for name in ("malloc", "free", "realloc", "memalign", "mmap", "munmap")} | {"pthread_self_pid"}


class Exports(unittest.TestCase):
    def setUp(self):
        self.target = target.current()

    def read(self, *options, library=None):
        command = [self.target.tool("readelf"), "-W", *options, library or self.target.library]
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout

    def symbols(self, library=None):
        """{name: (binding, defined)} of the dynamic symbols."""
        rows = [line.split() for line in self.read("--dyn-syms", library=library).splitlines()]
        rows = [row for row in rows if len(row) >= 8 and re.fullmatch(r"\d+:", row[0]) and row[4] in ("GLOBAL", "WEAK")]
        return {row[7].split("@")[0]: (row[4], row[6] != "UND") for row in rows}

    def test_dynamic_symbols_are_exactly_the_interface(self):
        symbols = self.symbols()
        defined = {name for name, (_, here) in symbols.items() if here}
        self.assertEqual(defined, GLOBALS | WEAK | ENTRIES | {"quarl_check_mem"})
        self.assertEqual({name for name in defined if symbols[name][0] == "WEAK"} & WEAK, WEAK)

    def test_needs_nothing_but_the_c_library(self):
        needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", self.read("-d")))
        loader = "ld-linux" if self.target.name != "i686" else "ld-linux.so.2"
        self.assertLessEqual({name for name in needed if not name.startswith(loader)}, {"libc.so.6"})
        undefined = {name for name, (_, here) in self.symbols().items() if not here}
        self.assertEqual({name for name in undefined if name.startswith(("_Z", "dlopen", "dlsym"))}, set())

    def test_native_build_expects_exactly_the_hooks_and_raw_entries(self):
        native = self.target.build / "native" / "libquarl.so"
        if self.target.name != "i686":
            self.skipTest("built for i686 only: its symbols are the same everywhere")
        undefined = {name for name, (_, here) in self.symbols(native).items() if not here}
        defined = {name for name, (_, here) in self.symbols(native).items() if here}
        self.assertEqual(undefined & (RAW | HOOKS), RAW | HOOKS)
        self.assertEqual(defined, GLOBALS | WEAK | {"quarl_check_mem"})
        self.assertEqual({name for name in undefined if name.startswith("__libc_")} - {"__libc_start_main"}, set())


if __name__ == "__main__":
    unittest.main()
