// SPDX-License-Identifier: Apache-2.0
// The free hook.
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/checking/pointer_check.h"
#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/hooks/new_block.h"
#include "quarlheap/model/operation_record.h"
#include "quarlheap/model/used_list.h"
#include "state/raw_calls.h"

namespace quarl {
namespace {

// Nothing is counted or recorded, and no block was ever headed or all are gone: the pointer cannot be one of ours, and
// is forgotten if it was given out without a header. The number of blocks tells, for damage may have lost the list's
// head.
bool nothing_to_do(const Flags& flags, Address p) NO_THREAD_SAFETY_ANALYSIS {
  if (flags.tracked() || __atomic_load_n(&heap_block_count, __ATOMIC_RELAXED) != 0) return false;
  if (DoubtfulBlock(p).is_freed()) return false;
  take_bare_block(pointer_to(p));
  return true;
}

// Counts and records the release of a checked pointer and takes its block off the list; returns the raw block.
[[gnu::always_inline]] inline void* give_up(const Flags& flags, const CheckedPointer& pointer, const CallTrace& trace)
    REQUIRES(hook_mutex) {
  if (pointer.headed() && flags.record_log()) record_release(pointer.block(), flags, kOpFree, trace);
  const Counters counters = counters_for(flags);
  counters.released(kOpFree, pointer.size());
  count_unmapped_chunk(counters, pointer.chunk());
  if (pointer.headed()) mark_released(pointer.block(), pointer.ties());
  return pointer_to(pointer.raw());
}

[[gnu::cold, gnu::noinline]] void* give_up_doubtful(const Flags& flags, Address p, const CallTrace& trace)
    REQUIRES(hook_mutex) {
  const FoundBy release(FoundBy::kRelease);
  return give_up(flags, classify_pointer(p), trace);
}

// The same of a block that is sound for certain; null when that is not so, and nothing was done.
[[gnu::always_inline]] inline void* give_up_if_certain(const Flags& flags, Address p, const CallTrace& trace)
    REQUIRES(hook_mutex) {
  const HeaderLayout layout = HeaderLayout::for_new(flags, kOpMalloc);
  const BoundedBlock block = DoubtfulBlock(p).bounded_as(layout);
  Ties ties;
  if (__builtin_expect(!is_certain(block, &ties), 0)) return nullptr;
  return give_up(flags, {{p, block.offset(), layout, block.size()}, ties}, trace);
}

[[gnu::always_inline]] inline void* give_up_block(const Flags& flags, Address p, const CallTrace& trace) {
  const ScopedLock lock;
  void* raw = give_up_if_certain(flags, p, trace);
  return __builtin_expect(raw != nullptr, 1) ? raw : give_up_doubtful(flags, p, trace);
}

[[gnu::always_inline]] inline void release(const Flags& flags, HookFrame frame, void* ptr) {
  CallTrace trace;
  if (flags.record_log()) take_trace(flags, frame, &trace);
  const Address p = address_of(ptr);
  raw::release(nothing_to_do(flags, p) ? ptr : give_up_block(flags, p, trace));
}

// What is no block, and nothing that could be looked at.
[[gnu::cold, gnu::noinline]] void release_nothing(HookFrame frame, void* ptr) {
  const Flags flags = enter_hook(kSlopFree);
  CallTrace trace;
  if (flags.record_log()) take_trace(flags, frame, &trace);
  ptr == nullptr ? count_failure(flags, kOpFree, 0, trace) : raw::release(ptr);
}

// For pointers of any kind, too.
[[gnu::noinline, gnu::flatten]] void free_for_any_flags(void* ptr, const void*) {
  const InsideChecker inside;
  if (__builtin_expect(other_allocators, 0) && ptr != nullptr && of_other_allocator(ptr)) return raw::release(ptr);
  if (leads_nowhere(address_of(ptr))) return release_nothing(this_frame(), ptr);
  prefetch_block(address_of(ptr));
  release(enter_hook(kSlopFree), this_frame(), ptr);
}

// Of a pointer that lies as usual, to a block that is sound for certain. False when it is not, and nothing was done.
// The hooks are there for as long as a block is found on the list, so the raw entry is called as it is.
[[gnu::always_inline]] inline bool release_if_certain(const Flags& flags, HookFrame frame, Address p) {
  const InsideChecker inside;
  prefetch_block(p);
  CallTrace trace;
  if (flags.record_log()) take_trace(flags, frame, &trace);
  void* raw = nullptr;
  {
    const ScopedLock lock;
    raw = give_up_if_certain(flags, p, trace);
  }
  if (__builtin_expect(raw == nullptr, 0)) return false;
  ext_free(raw);
  return true;
}

QUARL_TAIL_CALLS [[gnu::noinline, gnu::flatten]] void free_with_records(void* ptr, const void* caller) {
  const Address p = address_of(ptr);
  const bool own = lies_as_usual(p) && as_by_default_with_records(settings, kSlopFree);
  if (own && release_if_certain(kRecordingFlags, this_frame(), p)) return;
  free_for_any_flags(ptr, caller);
}

// free(NULL), of which some programs are full: a failed call.
[[gnu::noinline]] void release_null() {
  const InsideChecker inside;
  const ScopedLock lock;
  counters_for(kDefaultFlags).failed(kOpFree);
}

}  // namespace

QUARL_TAIL_CALLS [[gnu::noinline, gnu::flatten]] void free_hook(void* ptr, const void* caller) {
  const Address p = address_of(ptr);
  const bool own = lies_as_usual(p) && as_by_default(settings, kSlopFree);
  if (__builtin_expect(own, 1) && release_if_certain(kDefaultFlags, this_frame(), p)) return;
  if (ptr == nullptr && as_by_default(settings, kSlopFree)) return release_null();
  free_with_records(ptr, caller);
}

}  // namespace quarl
