// SPDX-License-Identifier: Apache-2.0
// The layout of every log file, to the byte: what the library writes and the `quarl` tool reads.
// docs/log-format.md describes the same layout in prose, with these names.
// All numbers are in the byte order that LogHeader::byte_order states.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quarl {

// Operation codes: OpRecord::operation and the index of every counter of the statistics.
enum Operation : uint8_t {
  kOpMalloc = 0,
  kOpRealloc = 1,  // the new block
  kOpCalloc = 2,   // named in reports only
  kOpFree = 3,
  kOpMemalign = 4,
  kOpMmap = 5,            // anonymous memory
  kOpMunmap = 6,          // anonymous memory
  kOpChunkMap = 7,        // mapping made by the allocator itself for a large block
  kOpChunkUnmap = 8,      // unmapping made by the allocator itself
  kOpReallocRelease = 9,  // release of the old block
  kOpMmapFile = 10,
  kOpMunmapFile = 11,
};
inline constexpr int kOpCount = 12;

// Record kinds: OpRecord::result.
enum RecordKind : uint8_t {
  kKindAllocated = 1,  // in snapshots: still live
  kKindReleased = 2,
  kKindFailed = 4,
  kKindSlopHead = 6,
  kKindSlopTail = 7,
};

inline constexpr int kMaxTrace = 64;
inline constexpr int kThreadSlots = 200;
inline constexpr char kLogMagic[5] = "QRCL";
inline constexpr uint8_t kBigEndian = 1;
inline constexpr uint8_t kLittleEndian = 2;
inline constexpr uint32_t kThreadStatsOn = 2;  // LogHeader::thread_stats when QUARL_THREAD was on

struct LogHeader {
  char magic[5];       // kLogMagic with its NUL
  uint8_t byte_order;  // kBigEndian or kLittleEndian
  uint8_t reserved[2];
  char proc_name[32];  // NUL-terminated, at most 15 characters
  uint32_t pid;
  uint32_t thread_slots;  // kThreadSlots
  uint32_t thread_stats;  // kThreadStatsOn or 0
  uint32_t trace_depth;   // kMaxTrace
  uint32_t maps_offset;   // these four from the start of the file
  uint32_t stats_offset;
  uint32_t threads_offset;
  uint32_t records_offset;
  uint32_t record_count;     // 0 where not counted
  uint32_t snapshot_number;  // 1 but in the automatic-snapshot log
  uint32_t time;             // seconds since the epoch of the last write, 0 before
  uint32_t next_snapshot;    // offset of the next snapshot's header, 0 for the last
};
static_assert(sizeof(LogHeader) == 88);
static_assert(offsetof(LogHeader, byte_order) == 5);
static_assert(offsetof(LogHeader, reserved) == 6);
static_assert(offsetof(LogHeader, proc_name) == 8);
static_assert(offsetof(LogHeader, pid) == 40);
static_assert(offsetof(LogHeader, thread_slots) == 44);
static_assert(offsetof(LogHeader, thread_stats) == 48);
static_assert(offsetof(LogHeader, trace_depth) == 52);
static_assert(offsetof(LogHeader, maps_offset) == 56);
static_assert(offsetof(LogHeader, stats_offset) == 60);
static_assert(offsetof(LogHeader, threads_offset) == 64);
static_assert(offsetof(LogHeader, records_offset) == 68);
static_assert(offsetof(LogHeader, record_count) == 72);
static_assert(offsetof(LogHeader, snapshot_number) == 76);
static_assert(offsetof(LogHeader, time) == 80);
static_assert(offsetof(LogHeader, next_snapshot) == 84);

struct OpRecord {
  uint32_t tid;               // kernel task id, 0 when not recorded
  uint32_t time;              // checker clock in seconds, 0 when not recorded
  uint32_t seq_num;           // 0 when not recorded
  uint8_t operation;          // Operation
  uint8_t result;             // RecordKind
  uint8_t stack_depth;        // valid words of trace, [0, 64]
  uint8_t from_file;          // 1 in the record of a file mapping
  uint32_t size;              // bytes requested
  uint32_t start_addr;        // 0 for a failed allocation or mmap
  uint32_t trace[kMaxTrace];  // return addresses, innermost first; undefined from stack_depth on
};
static_assert(sizeof(OpRecord) == 280);
static_assert(offsetof(OpRecord, time) == 4);
static_assert(offsetof(OpRecord, seq_num) == 8);
static_assert(offsetof(OpRecord, operation) == 12);
static_assert(offsetof(OpRecord, result) == 13);
static_assert(offsetof(OpRecord, stack_depth) == 14);
static_assert(offsetof(OpRecord, from_file) == 15);
static_assert(offsetof(OpRecord, size) == 16);
static_assert(offsetof(OpRecord, start_addr) == 20);
static_assert(offsetof(OpRecord, trace) == 24);
inline constexpr size_t kRecordHeadSize = offsetof(OpRecord, trace);

// Usage statistics of the process. Byte counts of held memory wrap at 2^32.
struct ProfInfo {
  uint32_t calls[kOpCount];
  uint32_t failed[kOpCount];
  uint32_t unfree_size;       // bytes held through the heap and anonymous mappings
  uint32_t unfree_file_size;  // bytes mapped from files
  uint32_t unfree_peak;
  uint32_t unfree_file_peak;
  uint64_t totals[kOpCount];  // bytes
  uint32_t trace_mmap;        // copy of QR_TRACE_MMAP
  uint32_t reserved;
};
static_assert(sizeof(ProfInfo) == 216);
static_assert(offsetof(ProfInfo, failed) == 48);
static_assert(offsetof(ProfInfo, unfree_size) == 96);
static_assert(offsetof(ProfInfo, unfree_file_size) == 100);
static_assert(offsetof(ProfInfo, unfree_peak) == 104);
static_assert(offsetof(ProfInfo, unfree_file_peak) == 108);
static_assert(offsetof(ProfInfo, totals) == 112);
static_assert(offsetof(ProfInfo, trace_mmap) == 208);
static_assert(offsetof(ProfInfo, reserved) == 212);

// Usage statistics of one thread; the threads section holds kThreadSlots of them.
struct ThreadProf {
  uint32_t tid;  // 0 marks a free entry
  uint32_t calls[kOpCount];
  uint32_t failed[kOpCount];
  uint32_t in_place;  // reallocs whose raw block did not move
  uint32_t shrink;    // reallocs to a smaller size
  uint32_t unfree_size;
  uint32_t unfree_file_size;
  uint32_t unfree_peak;
  uint32_t unfree_file_peak;
  uint32_t reserved[3];
  uint64_t totals[kOpCount];  // bytes
  char name[16];
};
static_assert(sizeof(ThreadProf) == 248);
static_assert(offsetof(ThreadProf, calls) == 4);
static_assert(offsetof(ThreadProf, failed) == 52);
static_assert(offsetof(ThreadProf, in_place) == 100);
static_assert(offsetof(ThreadProf, shrink) == 104);
static_assert(offsetof(ThreadProf, unfree_size) == 108);
static_assert(offsetof(ThreadProf, unfree_file_size) == 112);
static_assert(offsetof(ThreadProf, unfree_peak) == 116);
static_assert(offsetof(ThreadProf, unfree_file_peak) == 120);
static_assert(offsetof(ThreadProf, reserved) == 124);
static_assert(offsetof(ThreadProf, totals) == 136);
static_assert(offsetof(ThreadProf, name) == 232);
inline constexpr size_t kThreadTableSize = kThreadSlots * sizeof(ThreadProf);
static_assert(kThreadTableSize == 49600);

}  // namespace quarl
