"""Snapshots of unfreed memory: at exit, on the signal, while threads allocate; histogram, records and headers."""

import signal
import time

import case
from header import read_header
from log_file import ALLOCATED, SLOP_HEAD, SLOP_TAIL, read_log
from report_text import take_reports
from tables import histogram


class Snapshot(case.Case):
    def test_exit_snapshot_lists_what_is_held(self):
        before = int(time.time())
        puppet = self.puppet("QUARL_PRINT_PROFINFO=1")
        sizes = [1, 99, 100, 999, 1000, 9999, 10000, 99999, 100000, 5000000]
        blocks = [puppet.malloc(size) for size in sizes]
        headers = [read_header(puppet, block) for block in blocks]
        mapping = puppet.do("mmap 0 12288 3 34 -1 0")
        puppet.free(puppet.malloc(50))
        self.assertEqual(puppet.finish(), 0)
        large = [record for record in read_log(self.log_path(puppet, "quarl")).records if record.operation == 5]
        log = read_log(self.log_path(puppet, "quarl"))
        self.assertTrue(puppet.out.endswith(histogram(sizes[:-1] + [record.size for record in large])), puppet.out)
        self.assertEqual([record.brief() for record in log.records[:10]],
                         [("malloc", ALLOCATED, size, block) for size, block in zip(sizes, blocks)])
        for record, header in zip(log.records, headers):
            self.assertEqual((record.tid, record.seq_num, list(record.trace)), (puppet.pid, header.seq_num, header.trace))
        # the largest block lies in a mapping of its own, which is listed as one
        self.assertEqual(len(large), 2)
        self.assertIn((12288, mapping), [(record.size, record.address) for record in large])
        self.assertTrue(any(record.address < blocks[-1] and blocks[-1] + sizes[-1] <= record.address + record.size for record in large))
        self.assertEqual((log.record_count, log.number, log.next), (len(log.records), 1, 0))
        self.assertTrue(before <= log.time <= time.time())

    def test_large_blocks_without_mapping_records(self):
        puppet = self.puppet("QUARL_PRINT_PROFINFO=1 QUARL_MMAP=0")
        puppet.malloc(200000)
        self.assertEqual(puppet.finish(), 0)
        self.assertTrue(puppet.out.endswith(histogram([200000])))
        log = read_log(self.log_path(puppet, "quarl"))
        self.assertEqual(([record.size for record in log.records], log.stats.trace_mmap), ([200000], 0))

    def test_nothing_held(self):
        puppet = self.puppet("QUARL_PRINT_PROFINFO=1")
        puppet.free(puppet.malloc(10))
        self.assertEqual(puppet.finish(), 0)
        self.assertTrue(puppet.out.endswith(histogram([])))
        self.assertEqual(read_log(self.log_path(puppet, "quarl")).records, [])

    def test_record_log_mode_prints_the_table_only(self):
        puppet = self.puppet("QUARL_PRINT_PROFINFO=1 QUARL_OUTPUT_LOG=1")
        puppet.malloc(10)
        puppet.malloc(20000)
        self.assertEqual(puppet.finish(), 0)
        self.assertTrue(puppet.out.endswith(histogram([10, 20000])))
        self.assertEqual(self.files(), [self.log_path(puppet, "quarlAll").name])

    def test_later_snapshots_replace_earlier_ones(self):
        puppet = self.puppet("")
        path = self.log_path(puppet, "quarl")
        blocks = [puppet.malloc(size) for size in range(1, 251)]
        for kept in (250, 120, 0):
            for block in blocks[kept:]:
                puppet.free(block)
            del blocks[kept:]
            puppet.do(f"raise {signal.SIGUSR1}")
            log = read_log(path)
            self.assertEqual(log.record_count, kept)
            self.assertEqual([record.address for record in log.records[:kept]], blocks)
            self.assertEqual(log.stats.counts()["malloc"][0], 250)
        self.assert_ends(puppet)

    def test_faults_met_on_the_way_are_reported_and_recorded(self):
        puppet = self.puppet("QUARL_SLOPOVER_EXIT=0")
        tail, sound, head, behind = (puppet.malloc(size) for size in (10, 11, 12, 13))
        puppet.fill(tail + 10, 0, 1)
        puppet.set_word(head - 4, 0)
        puppet.do(f"raise {signal.SIGUSR1}")
        puppet.read_some(0)
        reports, rest = take_reports(puppet.out)
        self.assertEqual(([report.address for report in reports], rest), ([tail, head], ""))
        log = read_log(self.log_path(puppet, "quarl"))
        kinds = [(record.kind, record.address) for record in log.records[: log.record_count]]
        self.assertIn((SLOP_TAIL, tail), kinds)
        self.assertIn((ALLOCATED, sound), kinds)
        self.assertIn((SLOP_HEAD, head), kinds)
        self.assertNotIn(behind, [address for _, address in kinds])
        puppet.kill()

    def test_snapshot_while_threads_allocate_is_consistent(self):
        puppet = self.puppet("QUARL_MMAP=0")
        workers = [puppet.spawn() for _ in range(8)]
        fixed = [puppet.malloc(size) for size in range(1000, 1050)]
        for worker in workers:
            worker.send("repeat 3000 realloc 0 100")
        path = self.log_path(puppet, "quarl")
        for _ in range(5):
            puppet.signal(signal.SIGUSR1)
        for worker in workers:
            puppet.answer(worker.number)
        self.assert_ends(puppet)
        log = read_log(path)
        self.assertEqual(log.record_count, len(log.records))
        self.assertEqual(len({record.address for record in log.records}), log.record_count)
        sequence = [record.seq_num for record in log.records]
        self.assertEqual(sequence, sorted(sequence))
        self.assertLessEqual(set(fixed), {record.address for record in log.records})
        by_size = [record for record in log.records if record.size == 100 and record.operation == 1]
        self.assertEqual(len(by_size), 8 * 3000)


if __name__ == "__main__":
    case.main()
