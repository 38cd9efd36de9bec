// The mmap and munmap hooks.
#include <sys/mman.h>

#include "logs/mappings/mapping_records.h"
#include "logs/records/record.h"
#include "platform/system.h"
#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/hooks/hook_table.h"
#include "state/raw_calls.h"

namespace quarl {
namespace {

bool is_file_mapping(int flags, int fd) {
  return (flags & MAP_ANONYMOUS) == 0 && fd != -1;
}

// A record of a mapping operation that names no live mapping.
void record_mapping_event(const Flags& flags, Operation op, RecordKind kind, uint32_t size, uint32_t address,
                          const CallTrace& trace) REQUIRES(hook_mutex) {
  if (!flags.record_log()) return;
  OpRecord record{};
  stamp_thread(flags, &record);
  stamp_time(flags, &record);
  record.operation = op;
  record.result = kind;
  record.stack_depth = static_cast<uint8_t>(trace.depth);
  record.size = size;
  record.start_addr = address;
  set_record_trace(trace.words, trace.depth, &record);
  put_record(record);
}

void fill_mapping_record(const Flags& flags, uint32_t address, uint32_t length, bool file, const CallTrace& trace,
                         OpRecord* record) REQUIRES(hook_mutex) {
  record->tid = static_cast<uint32_t>(current_tid());
  stamp_time(flags, record);
  record->operation = kOpMmap;
  record->result = kKindAllocated;
  record->stack_depth = static_cast<uint8_t>(trace.depth);
  record->from_file = file ? 1 : 0;
  record->size = length;
  record->start_addr = address;
  set_record_trace(trace.words, trace.depth, record);
}

void note_failed_mapping(const Flags& flags, bool file, const CallTrace& trace) {
  const ScopedLock lock;
  counters_for(flags).failed(file && QR_TRACE_MMAP == 1 ? kOpMmapFile : kOpMmap);
  record_mapping_event(flags, kOpMmap, kKindFailed, 0, 0, trace);
}

void note_mapping(const Flags& flags, uint32_t address, uint32_t length, bool file, const CallTrace& trace) {
  const ScopedLock lock;
  TraceInfoEntry* entry = flags.header() && QR_TRACE_MMAP == 1 ? take_mapping_entry() : nullptr;
  if (entry != nullptr) {
    fill_mapping_record(flags, address, length, file, trace, &entry->record);
    index_mapping(entry);
  }
  const Counters counters = counters_for(flags);
  if (entry != nullptr && file) {
    counters.file_mapped(length);
  } else {
    counters.allocated(kOpMmap, length);
  }
  if (entry != nullptr && flags.record_log()) put_record(entry->record);
}

void note_unmapping(const Flags& flags, uint32_t address, uint32_t length, bool failed, const CallTrace& trace) {
  const ScopedLock lock;
  TraceInfoEntry* entry = find_mapping(address, length);
  const bool file = entry != nullptr && entry->record.from_file != 0;
  const Counters counters = counters_for(flags);
  if (failed) {
    counters.failed(file ? kOpMunmapFile : kOpMunmap);
    record_mapping_event(flags, kOpMunmap, kKindFailed, length, address, trace);
    return;
  }
  const uint32_t released = entry != nullptr ? entry->record.size : length;
  if (file) {
    counters.file_unmapped(released);
  } else {
    counters.released(kOpMunmap, released);
  }
  if (entry != nullptr) release_mapping_entry(entry);
  record_mapping_event(flags, kOpMunmap, kKindReleased, length, address, trace);
}

}  // namespace

[[gnu::noinline]] void* mmap_hook(void* addr, size_t length, int prot, int flags, int fd, long offset) {
  const InsideChecker inside;
  const Flags config = enter_hook(0);
  void* mapped = raw::map(addr, length, prot, flags, fd, offset);
  if (!config.tracked()) return mapped;
  if (mapped == MAP_FAILED && thread_cache().maps_for_block) return mapped;  // a failure of the block, counted as such
  const KeepErrno keep;
  CallTrace trace;
  take_trace(config, &trace);
  if (mapped == MAP_FAILED) {
    note_failed_mapping(config, is_file_mapping(flags, fd), trace);
  } else {
    note_mapping(config, address_of(mapped), length, is_file_mapping(flags, fd), trace);
  }
  return mapped;
}

[[gnu::noinline]] int munmap_hook(void* addr, size_t length) {
  const InsideChecker inside;
  const Flags config = enter_hook(0);
  const int result = raw::unmap(addr, length);
  if (!config.tracked()) return result;
  const KeepErrno keep;
  CallTrace trace;
  take_trace(config, &trace);
  note_unmapping(config, address_of(addr), length, result != 0, trace);
  return result;
}

}  // namespace quarl
