// SPDX-License-Identifier: Apache-2.0
// The mmap and munmap hooks.
#include <errno.h>
#include <sys/mman.h>

#include "frames/rules.h"
#include "logs/mappings/mapping_records.h"
#include "logs/mappings/unmappings.h"
#include "logs/records/record.h"
#include "platform/system.h"
#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/hooks/left_unmappings.h"
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

void count_unmapping(const Counters& counters, const Unmapping& unmapping) REQUIRES(hook_mutex) {
  if (unmapping.from_file) {
    counters.file_unmapped(unmapping.size);
  } else {
    counters.released(kOpMunmap, unmapping.size);
  }
}

AddressRange pages_of(const void* addr, size_t length) {
  return {address_of(addr), round_up(length, static_cast<uint32_t>(QR_PAGE_SIZE))};
}

// Where the application unmaps what it had, holes in it and all, the checker's own may lie in a hole. False when there
// is no memory to go to.
bool begin_unmapping(const void* addr, uint32_t length, Unmapping* unmapping) {
  const KeepErrno keep;
  forget_code_in(pages_of(addr, length));
  const ScopedLock lock;
  if (!leave_to_application(pages_of(addr, length))) return false;
  *unmapping = unmappings.begin(address_of(addr), length);
  return true;
}

void note_unmapping(const Flags& flags, uint32_t address, uint32_t length, const Unmapping& unmapping, bool unmapped,
                    const CallTrace& trace) {
  const ScopedLock lock;
  const Counters counters = counters_for(flags);
  if (unmapped) {
    count_unmapping(counters, unmapping);
  } else {
    counters.failed(unmapping.from_file ? kOpMunmapFile : kOpMunmap);
  }
  unmappings.end(unmapping, unmapped);
  record_mapping_event(flags, kOpMunmap, unmapped ? kKindReleased : kKindFailed, length, address, trace);
}

// Where the application says which addresses it wants, the checker's own may be among them.
bool leave_wanted_place(const void* addr, size_t length, int flags) {
  if ((flags & MAP_FIXED) == 0) return true;
  const KeepErrno keep;
  forget_code_in(pages_of(addr, length));
  const ScopedLock lock;
  return leave_to_application(pages_of(addr, length));
}

// Records are kept while mappings are; what happens to them is seen while there are any.
bool tracks_unmapping(const Flags& config) {
  return config.tracked() || __atomic_load_n(&useed_head, __ATOMIC_RELAXED) != nullptr;
}

}  // namespace

[[gnu::noinline]] void* mmap_hook(void* addr, size_t length, int prot, int flags, int fd, long offset) {
  const InsideChecker inside;
  const Flags config = enter_hook(0);
  void* mapped = MAP_FAILED;
  if (leave_wanted_place(addr, length, flags)) {
    mapped = raw::map(addr, length, prot, flags, fd, offset);
  } else {
    errno = ENOMEM;
  }
  if (!config.tracked()) return mapped;
  if (mapped != MAP_FAILED) forget_code_in(pages_of(mapped, length));
  const KeepErrno keep;
  CallTrace trace;
  take_trace(config, this_frame(), &trace);
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
  if (!tracks_unmapping(config)) return raw::unmap(addr, length);
  Unmapping unmapping{};
  if (!begin_unmapping(addr, length, &unmapping)) {
    errno = ENOMEM;
    return -1;
  }
  const int result = raw::unmap(addr, length);
  unmappings.tell_result(unmapping, result == 0);
  const KeepErrno keep;
  CallTrace trace;
  take_trace(config, this_frame(), &trace);
  note_unmapping(config, address_of(addr), length, unmapping, result == 0, trace);
  return result;
}

void settle_unmappings_left_behind(int task) {
  const Counters process{counters_for(Flags()).process, nullptr};
  Unmapping unmapping;
  for (bool unmapped = false; unmappings.end_left_behind(task, &unmapping, &unmapped);) {
    if (unmapped) count_unmapping(process, unmapping);
  }
}

}  // namespace quarl
