# SPDX-License-Identifier: Apache-2.0
"""Mappings: which are recorded, which are found again, and the pages that hold their records."""

import mmap
import struct

import case
from log_file import ALLOCATED, FAILED, RELEASED, read_log
from promise import promise

PAGE = 4096
ENOMEM = 12
MMAP, FIXED = 5, "3 50 -1 0"
ANONYMOUS = "3 34 -1 0"
ENTRIES = 56  # in one record page


class Lists(case.Case):
    def lists(self, driver):
        """(live records, free entries, use counts of the pages), read through the exported globals."""
        def walk(symbol):
            at, count = driver.read(symbol), 0
            while at:
                at, count = driver.word(at + 284), count + 1
            return count
        pages, at = [], driver.read("qr_mmap_block_head")
        while at:
            self.assertEqual(driver.word(at + 12), at + 16)
            pages.append(int(driver.word(at + 8)))
            at = driver.word(at + 4)
        return walk("useed_head"), walk("unuse_head"), pages



class Mappings(Lists):
    def test_pages_are_taken_and_given_back(self):
        driver = self.driver("")
        made = [driver.do(f"mmap 0 {PAGE} {ANONYMOUS}") for _ in range(ENTRIES)]
        self.assertEqual(self.lists(driver), (56, 0, [56]))
        made.append(driver.do(f"mmap 0 {PAGE} {ANONYMOUS}"))
        self.assertEqual(self.lists(driver), (57, 55, [56, 1]))
        driver.munmap(made.pop(0), PAGE)
        self.assertEqual(self.lists(driver), (56, 56, [55, 1]))
        driver.munmap(made.pop(), PAGE)
        self.assertEqual(self.lists(driver), (55, 1, [55]))
        for address in made:
            driver.munmap(address, PAGE)
        self.assertEqual(self.lists(driver), (0, 0, []))
        self.assert_ends(driver)

    def test_what_a_release_finds(self):
        (self.directory / "file").write_bytes(b"x" * 20000)
        driver = self.driver("")
        descriptor = driver.open("file", 0)
        # (bytes mapped, from file, offset and length of the release, records left)
        cases = [(8192, 0, 0, 8192, 0), (8192, 0, PAGE, PAGE, 0), (8192, 0, 0, PAGE, 1), (12288, 0, PAGE, PAGE, 1),
                 (8192, 1, 0, 8192, 0), (8192, 1, PAGE, PAGE, 1), (8192, 1, 0, PAGE, 1), (5000, 1, 0, 5000, 0)]
        held = 0
        for length, from_file, offset, released, left in cases:
            with self.subTest(length, from_file=from_file, offset=offset):
                flags = f"1 2 {descriptor} 0" if from_file else ANONYMOUS
                address = driver.do(f"mmap 0 {length} {flags}")
                self.assertEqual(driver.munmap(address + offset, released), 0)
                held += left
                self.assertEqual(self.lists(driver)[0], held)
        self.assert_ends(driver)
        log = read_log(self.log_path(driver, "quarl"))
        self.assertEqual([record.from_file for record in log.records], [0, 0, 1, 1])
        self.assertEqual([record.size for record in log.records], [8192, 12288, 8192, 8192])
        self.assertEqual({(record.tid, record.operation) for record in log.records}, {(driver.pid, 5)})
        # a part of a recorded mapping counts with its own length, and as anonymous when it finds no record
        self.assertEqual(log.stats.counts()["munmap"], (6, 0, 8192 + 8192 + 4 * PAGE))
        self.assertEqual(log.stats.counts()["munmap file"], (2, 0, 8192 + 5000))

    def test_from_file_is_told_by_flags_and_descriptor(self):
        """An anonymous mapping stays one when a descriptor is given with it, as programs do; a failed one counts alike."""
        (self.directory / "file").write_bytes(b"x" * PAGE)
        for config, names in (("", ("mmap", "mmap file")), ("QUARL_MMAP=0", ("mmap", "mmap"))):
            with self.subTest(config):
                driver = self.driver("QUARL_OUTPUT_LOG=1 " + config)
                descriptor = driver.open("file", 0)
                anonymous = driver.do(f"mmap 0 {PAGE} 3 34 {descriptor} 0")
                driver.do(f"mmap 0 {PAGE} 1 2 {descriptor} 0")
                self.assertEqual(driver.do("mmap 0 0 3 34 -1 0").number, 22)
                self.assertEqual(driver.do(f"mmap 0 0 1 2 {descriptor} 0").number, 22)
                self.assertEqual(driver.do(f"mmap 0 {PAGE} 1 2 -1 0").number, 9)  # of no file: bad descriptor
                failed = driver.munmap(1, 100)
                self.assertEqual((failed, failed.number), (0xFFFFFFFF, 22))
                driver.munmap(anonymous, PAGE)
                self.assert_ends(driver)
                log = read_log(self.log_path(driver, "quarlAll"))
                counts = log.stats.counts()
                expected = {"mmap": (3, 2, PAGE), "mmap file": (2, 1, PAGE)} if not config else {"mmap": (5, 3, 2 * PAGE)}
                self.assertEqual(counts, {**expected, "munmap": (2, 1, PAGE)})
                made = [record for record in log.records if record.kind == ALLOCATED]
                self.assertEqual([record.from_file for record in made], [0, 1] if not config else [])
                self.assertEqual([record.kind for record in log.records if record not in made], [FAILED] * 4 + [RELEASED])
                self.assertTrue(all(0 not in record.trace and len(record.trace) > 1 for record in log.records))

    def test_from_file_byte_is_that_of_each_record(self):
        """Every record takes the place of a file's in a buffer of one."""
        (self.directory / "file").write_bytes(b"x" * PAGE)
        driver = self.driver("QUARL_OUTPUT_LOG=1 QUARL_TRACE_BUFSIZE=280")
        descriptor = driver.open("file", 0)
        block = driver.malloc(10)
        for command in ("malloc 20", f"realloc {block} 4000", "malloc 0", "free 0", "munmap 1 100"):
            driver.do(f"mmap 0 {PAGE} 1 2 {descriptor} 0")
            driver.do(command)
        self.assert_ends(driver)
        records = read_log(self.log_path(driver, "quarlAll")).records
        self.assertEqual([(record.brief()[0], record.from_file) for record in records],
                         [("malloc", 0), ("mmap", 1), ("malloc", 0), ("mmap", 1), ("realloc release", 0), ("realloc", 0),
                          ("mmap", 1), ("malloc", 0), ("mmap", 1), ("free", 0), ("mmap", 1), ("munmap", 0)])

    def test_offset_beyond_four_gigabytes(self):
        path = self.directory / "big"
        with open(path, "wb") as file:
            file.truncate(6 << 30)
            file.seek(5 << 30)
            file.write(b"here")
        content = {}
        for preload in (False, True):
            driver = self.driver("", preload=preload)
            descriptor = driver.open("big", 0)
            address = driver.do(f"mmap64 0 {PAGE} {mmap.PROT_READ} {mmap.MAP_PRIVATE} {descriptor} {5 << 30}")
            content[preload] = struct.pack("<I", driver.word(address))
        self.assertEqual(content[True], content[False])
        if not self.target.emulated:  # the emulator cuts the offset
            self.assertEqual(content[True], b"here")
        self.assertEqual(driver.munmap(address, PAGE), 0)
        self.assertEqual(driver.do(f"mmap64 0 {PAGE} 1 2 {descriptor} 100").number, 22)
        self.assert_ends(driver)
        self.assertEqual(read_log(self.log_path(driver, "quarl")).stats.counts(),
                         {"mmap file": (2, 1, PAGE), "munmap file": (1, 0, PAGE)})

    def test_off_keeps_no_record(self):
        driver = self.driver("QUARL_MMAP=0 QUARL_OUTPUT_LOG=1")
        address = driver.do(f"mmap 0 {PAGE} {ANONYMOUS}")
        driver.malloc(500000)
        self.assertEqual(self.lists(driver), (0, 0, []))
        driver.munmap(address, PAGE)
        self.assert_ends(driver)
        log = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual([record.brief()[::2] for record in log.records], [("malloc", 500000), ("munmap", PAGE)])

    def test_thousands_of_live_mappings(self):
        driver = self.driver("")
        driver.repeat(5000, f"mmap 0 {PAGE} {ANONYMOUS}")
        live, free, pages = self.lists(driver)
        self.assertEqual((live, free, sum(pages)), (5000, 90 * ENTRIES - 5000, 5000))
        self.assert_ends(driver)
        log = read_log(self.log_path(driver, "quarl"))
        self.assertEqual((log.record_count, log.stats.held), (5000, 5000 * PAGE))


class Threads(case.Case):
    @promise("The books of mappings are right where threads get the addresses that others have just given back, and in the"
             " children that they fork.")
    def test_threads_get_each_others_addresses(self):
        for arguments in ("4 1500 0", "4 3000 20") if self.target.emulated else ("8 3000 0", "2 20000 0", "4 20000 60"):
            with self.subTest(arguments):
                process = self.run_victim("mapping_churn", *arguments.split(), config="")
                self.assert_ends(process)
                log = read_log(self.log_path(process, "quarl", program="mapping_churn"))
                counts = log.stats.counts()
                self.assertEqual([record.brief() for record in log.records if record.operation == MMAP], [])
                self.assertEqual(counts["munmap file"], counts["mmap file"])
                self.assertEqual(log.stats.file_held, 0)
                self.assertEqual((log.stats.held - sum(record.size for record in log.records)) % (1 << 32),
                                 process.said("trimmed")[0])
                if not arguments.endswith(" 0"):
                    self.check_children(process)

    def check_children(self, parent):
        children = set(parent.said("child"))
        self.assertGreater(len(children), 5)
        name = self.target.process_name("mapping_churn")
        for child in children:
            log = read_log(self.directory / f"{name}_{child}_quarl.log")
            spans = [[int(end, 16) for end in line.split()[0].split("-")] for line in log.maps.splitlines()]
            for record in log.records:
                last = record.address + record.size - 1
                self.assertTrue(record.operation != MMAP or any(start <= last < end for start, end in spans), record)


class OwnPages(Lists):
    @promise("An application that maps over the checker's records with `MAP_FIXED` gets the addresses that it wants, and the"
             " records move.")
    def test_records_move_out_of_the_way(self):
        """300 mappings take six pages of records, and an index of their own size. What lies below those of a record page
        is mapped over, then a part of one, then everything that is the checker's."""
        driver = self.driver("")
        before = self.writable(driver)
        made = [driver.do(f"mmap 0 {PAGE} 0 34 -1 0") for _ in range(300)]
        held = (300, 6 * ENTRIES - 300, [ENTRIES] * 5 + [300 - 5 * ENTRIES])
        self.assertEqual(self.lists(driver), held)
        taken = []
        for size in (4 * PAGE, PAGE):
            taken.append((driver.read("qr_mmap_block_head") + 4 * PAGE - size, size))
            self.take(driver, *taken[-1])
        if not self.target.emulated:
            mine = [(start, end - start) for start, end in self.writable(driver) - before]
            mine = [(start, size) for start, size in mine if (start, size) not in taken]
            self.assertGreater(sum(size for _, size in mine), 6 * 4 * PAGE)
            for start, size in mine:
                self.take(driver, start, size)
            taken += mine
        for address in made:
            self.assertEqual(driver.munmap(address, PAGE), 0)
        live, free, pages = self.lists(driver)
        self.assertEqual((live, len(pages)), (len(taken), 1))
        for start, size in taken:
            self.assertEqual(driver.holds(start, 0x5A, size), 1)
            self.assertEqual(driver.munmap(start, size), 0)
        self.assertEqual(self.lists(driver), (0, 0, []))
        self.assert_ends(driver)

    @promise("The records of mappings lie between pages that nobody may touch, so that an overrun ends before them.")
    def test_records_lie_between_walls(self):
        """300 mappings take six pages of records, and an index of their own size."""
        if self.target.emulated:
            return  # the emulator's own memory lies among it
        driver = self.driver("")
        before = self.writable(driver)
        for _ in range(300):
            driver.do(f"mmap 0 {PAGE} 0 34 -1 0")
        walls = self.mapped(driver, "---p")
        starts, ends = {start for start, _ in walls}, {end for _, end in walls}
        mine = self.writable(driver) - before
        self.assertGreater(sum(end - start for start, end in mine), 6 * 4 * PAGE)
        for start, end in mine:
            self.assertTrue(start in ends and end in starts, f"{start:#x}-{end:#x} is open to overruns")
        self.assert_ends(driver)

    def take(self, driver, start, size):
        live = self.lists(driver)[0]
        self.assertEqual(driver.do(f"mmap {start:#x} {size} {FIXED}"), start)
        driver.fill(start, 0x5A, size)
        self.assertEqual(self.lists(driver)[0], live + 1)

    def writable(self, driver):
        """What is mapped without a file, to be read and written."""
        return self.mapped(driver, "rw-p")

    def mapped(self, driver, access):
        with open(f"/proc/{driver.pid}/maps") as file:
            lines = [line.split() for line in file]
        return {tuple(int(end, 16) for end in line[0].split("-")) for line in lines if line[1] == access and len(line) == 5}

    @promise("So they do where it unmaps what it has mapped, with holes in it in which they lie.")
    def test_records_move_out_of_a_hole(self):
        driver = self.driver("")
        made = [driver.do(f"mmap 0 {PAGE} 0 34 -1 0") for _ in range(100)]
        page = driver.read("qr_mmap_block_tail")
        self.assertEqual(driver.munmap(page, 4 * PAGE), 0)
        self.assertNotEqual(driver.read("qr_mmap_block_tail"), page)
        self.assertEqual(self.lists(driver)[0], 100)
        for address in made:
            driver.munmap(address, PAGE)
        self.assertEqual(self.lists(driver), (0, 0, []))
        self.assert_ends(driver)

    def test_kept_pages_of_a_large_block_are_given_up(self):
        driver = self.driver("")
        block = driver.malloc(200000)
        start = block & -PAGE
        driver.free(block)
        self.assertEqual(driver.do(f"mmap {start + PAGE:#x} {2 * PAGE} {FIXED}"), start + PAGE)
        driver.fill(start + PAGE, 0x5A, 2 * PAGE)
        for _ in range(10):
            driver.fill(driver.malloc(200000), 0xEE, 200000)
        self.assertEqual(driver.holds(start + PAGE, 0x5A, 2 * PAGE), 1)
        self.assert_ends(driver)


class Refused(Lists):
    @promise("A mapping that the kernel does not take back is a failed `munmap`, and stays in the books.")
    def test_what_the_kernel_refuses_to_unmap(self):
        if self.target.emulated:
            self.skipTest("the emulator knows no seccomp filters")
        driver = self.driver("QUARL_OUTPUT_LOG=1")
        older, newer = (driver.do(f"mmap 0 {7 * PAGE} {ANONYMOUS}") for _ in range(2))
        self.assertEqual(driver.refuse(7 * PAGE), 0)
        for _ in range(2):
            answer = driver.munmap(older, 7 * PAGE)
            self.assertEqual((answer, answer.number), (0xFFFFFFFF, ENOMEM))
        self.assertEqual([driver.word(driver.read("useed_head") + 20), self.lists(driver)[0]], [older, 2])
        self.assertEqual(driver.munmap(older + 5 * PAGE, 2 * PAGE), 0)  # its end, by which it is found again
        self.assertEqual(self.lists(driver)[0], 1)

        block = driver.malloc(1000000)
        driver.fill(block, 0xEE, 1000000)
        driver.refuse(driver.word(driver.read("useed_tail") + 16))
        driver.free(block)
        self.assertEqual((driver.holds(block, 0, 1000000), self.lists(driver)[0]), (1, 2))  # without its pages
        driver.free(driver.malloc(2000000))
        self.assert_ends(driver)
        log = read_log(self.log_path(driver, "quarlAll"))
        self.assertEqual(log.stats.counts()["munmap"][:2], (5, 3))
        refused = [record.brief()[2:] for record in log.records if record.kind == FAILED]
        self.assertEqual(refused[:2], [(7 * PAGE, older)] * 2)
        self.assertEqual((len(refused), refused[2][1]), (3, block & -PAGE))


if __name__ == "__main__":
    case.main()
