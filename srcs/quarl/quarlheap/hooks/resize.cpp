// SPDX-License-Identifier: Apache-2.0
// The realloc hook: allocates for a null pointer, releases for size 0, resizes otherwise.
#include <string.h>

#include "quarlheap/checking/pointer_check.h"
#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/hooks/limits.h"
#include "quarlheap/hooks/new_block.h"
#include "quarlheap/model/operation_record.h"
#include "quarlheap/model/used_list.h"
#include "state/raw_calls.h"

namespace quarl {
namespace {

[[gnu::cold, gnu::noinline]] void* fail(const Flags& flags, uint32_t size, const CallTrace& trace) {
  count_failure(flags, kOpRealloc, size, trace);
  tell_failure();
  return nullptr;
}

[[gnu::always_inline]] inline void* allocate_traced(const Flags& flags, uint32_t size, const CallTrace& trace) {
  if (random_failure(flags)) return fail(flags, size, trace);
  const Placement place = place_block(flags, kOpRealloc, trace.depth);
  if (size_wraps(place, size)) return fail(flags, size, trace);
  void* raw = raw::allocate(place.raw_size(size));
  if (raw == nullptr) return fail(flags, size, trace);
  return finish_block({flags, kOpRealloc, size, place, trace}, raw);
}

// As the malloc hook does, where most have the default depth.
[[gnu::always_inline]] inline void* allocate(const Flags& flags, uint32_t size, CallTrace& trace) {
  if (__builtin_expect(trace.depth == kDefaultDepth, 1)) {
    trace.depth = kDefaultDepth;
    return allocate_traced(flags, size, trace);
  }
  return allocate_traced(flags, size, trace);
}

// The release of size 0. Returns the raw block that goes back to the allocator.
[[gnu::cold, gnu::noinline]] void* give_up_block(const Flags& flags, Address p, const CallTrace& trace) {
  const ScopedLock lock;
  const CheckedPointer pointer = classify_pointer(p);
  const Counters counters = counters_for(flags);
  counters.called(kOpRealloc);
  counters.shrunk();
  count_unmapped_chunk(counters, pointer.chunk());
  counters.released(kOpReallocRelease, pointer.size());
  if (!pointer.headed()) return pointer_to(pointer.raw());
  if (flags.record_log()) record_release(pointer.block(), flags, kOpReallocRelease, trace);
  mark_released(pointer.block(), pointer.ties());
  return pointer_to(pointer.raw());
}

// log2 of the alignment that the block that takes its place inherits.
uint32_t inherited_alignment(TraceInfo info) {
  const uint32_t log2 = info.align_log2();
  return op_has_trace_info(info.operation()) && log2 != 0 && log2 < 32 ? log2 : kPlainAlignLog2;
}

// A resize on its way: the old block, and where the new one will lie in the raw block.
struct Resize {
  const Flags& flags;
  Address p;
  uint32_t new_size;
  CallTrace& trace;
  uint32_t old_size = 0;
  uint32_t old_offset = 0;
  uint32_t old_alignment = kPlainAlignLog2;  // log2
  ChunkWord old_chunk{};
  Placement place{};

  Address raw() const { return p - old_offset; }
  bool headed() const { return old_offset != 0; }
  SoundBlock old_block() const { return {p, old_offset}; }  // checked, and not the application's at present
};

// Counts and records the release of a checked pointer and takes its block off the list.
[[gnu::always_inline]] inline void take(Resize* resize, const CheckedPointer& pointer) REQUIRES(hook_mutex) {
  resize->old_offset = resize->p - pointer.raw();
  resize->old_size = pointer.size();
  resize->old_chunk = pointer.chunk();
  if (pointer.headed()) unlink_block(pointer.block(), pointer.ties());
  counters_for(resize->flags).released(kOpReallocRelease, resize->old_size);
  if (pointer.headed() && resize->flags.record_log()) {
    record_release(pointer.block(), resize->flags, kOpReallocRelease, resize->trace);
  }
}

[[gnu::cold, gnu::noinline]] void take_doubtful(Resize* resize) REQUIRES(hook_mutex) {
  const CheckedPointer pointer = classify_pointer(resize->p);
  if (pointer.headed()) resize->old_alignment = inherited_alignment(pointer.block().fields().info);
  take(resize, pointer);
}

// The same of a block that is sound for certain; false when that is not so, and nothing was done.
[[gnu::always_inline]] inline bool take_if_certain(Resize* resize) REQUIRES(hook_mutex) {
  const HeaderLayout layout = HeaderLayout::for_new(resize->flags, kOpRealloc);
  const BoundedBlock block = DoubtfulBlock(resize->p).bounded_as(layout);
  Ties ties;
  if (__builtin_expect(!is_certain(block, &ties), 0)) return false;
  if (layout.trace_info()) resize->old_alignment = inherited_alignment(block.info());
  take(resize, {{resize->p, block.offset(), layout, block.size()}, ties});
  return true;
}

// The first half, under the lock: the old block is checked, counted and recorded as released, and off the list.
[[gnu::always_inline]] inline void take_old_block(Resize* resize) {
  const ScopedLock lock;
  if (__builtin_expect(!take_if_certain(resize), 0)) take_doubtful(resize);
}

// The block of a resize that failed is the application's as before: back on the list, its release undone in the
// statistics and answered in the log by a record of the live block.
void put_back_old_block(const Resize& resize) {
  const ScopedLock lock;
  counters_for(resize.flags).undo_release(kOpReallocRelease, resize.old_size);
  if (!resize.headed()) return keep_bare_block(pointer_to(resize.p));
  const SoundBlock block = resize.old_block();
  link_block(block);
  if (!resize.flags.record_log()) return;
  CallTrace made_by;
  made_by.depth = block.trace_depth() < kMaxTrace ? block.trace_depth() : kMaxTrace;
  memcpy(made_by.words, block.trace_words(), sizeof(uint32_t) * static_cast<size_t>(made_by.depth));
  record_allocation(block, made_by);
}

[[gnu::cold, gnu::noinline]] void* fail_resize(const Resize& resize) {
  put_back_old_block(resize);
  return fail(resize.flags, resize.new_size, resize.trace);
}

// Where an old header is longer than the new one (header items were switched off meanwhile), the trace is lengthened by
// zeros up to the old length, so that the user's bytes can stay in place. That is possible while the header holds a
// trace and 64 entries are enough.
[[gnu::cold, gnu::noinline]] bool lengthen_trace(Resize* resize) {
  const uint32_t missing = (resize->old_offset - resize->place.offset) / 4;
  const uint32_t depth = static_cast<uint32_t>(resize->trace.depth) + missing;
  if (!resize->flags.in_force(kHeadStackdepth) || depth > kMaxTrace) return false;
  memset(resize->trace.words + resize->trace.depth, 0, sizeof(uint32_t) * missing);
  resize->trace.depth = static_cast<int>(depth);
  resize->place.depth = depth;
  resize->place.offset = resize->old_offset;
  return true;
}

[[gnu::always_inline]] inline void place_new_block(Resize* resize) {
  resize->place = place_block(resize->flags, kOpRealloc, resize->trace.depth, resize->old_alignment);
  if (resize->place.offset < resize->old_offset) lengthen_trace(resize);
}

void move_user_bytes(const Resize& resize, void* raw) {
  const uint32_t kept = resize.old_size < resize.new_size ? resize.old_size : resize.new_size;
  auto* start = static_cast<char*>(raw);
  memmove(start + resize.place.offset, start + resize.old_offset, kept);
}

// The raw resize knows no alignment, and may turn an ordinary chunk into a mapping of its own, which an aligned block
// never is: the size rule allows for none. So an aligned block moves, and stays aligned.
void* move_aligned(const Resize& resize) {
  const Placement& place = resize.place;
  void* raw = raw::allocate_aligned(place.alignment(), place.raw_size(resize.new_size));
  if (raw == nullptr) return nullptr;
  // The size may be off by as much as the check tolerates; no more than the chunk has is there to be copied.
  const uint32_t there = raw_room(resize.raw()) - resize.old_offset;
  const uint32_t old = resize.old_size < there ? resize.old_size : there;
  memcpy(static_cast<char*>(raw) + place.offset, pointer_to(resize.p), old < resize.new_size ? old : resize.new_size);
  raw::release(pointer_to(resize.raw()));
  return raw;
}

// Resizes the raw block and brings the user's bytes to their new offset; null when there is no memory, the old block
// untouched. To a shorter offset the bytes move down while the room of both headers is there.
[[gnu::always_inline]] inline void* resize_raw(const Resize& resize) {
  if (resize.place.align_log2 > kPlainAlignLog2) return move_aligned(resize);
  const uint32_t final_size = resize.place.raw_size(resize.new_size);
  const bool shorter = resize.place.offset < resize.old_offset;
  const uint32_t room = shorter ? resize.old_offset - resize.place.offset : 0;
  void* old_raw = pointer_to(resize.raw());
  void* raw = raw::resize(old_raw, final_size + room);
  if (raw == nullptr) return nullptr;
  if (resize.place.offset != resize.old_offset) move_user_bytes(resize, raw);
  if (!shorter) return raw;
  void* cut = raw::resize(raw, final_size);
  return cut != nullptr ? cut : raw;
}

// A mapped chunk that moved was counted by the mapping hooks: the new one as a mapping, the old one as an unmapping.
inline void count_moved_chunks(const Counters& counters, const Resize& resize, Address new_raw) REQUIRES(hook_mutex) {
  if (new_raw == resize.raw()) {
    counters.resized_in_place();
    return;
  }
  count_mapped_chunk(counters, chunk_before(new_raw));
  count_unmapped_chunk(counters, resize.old_chunk);
}

// The second half, under the lock.
[[gnu::always_inline]] inline void* make_new_block(const Resize& resize, void* raw) {
  if (!resize.flags.tracked()) return bare_block(raw);
  const NewBlock block{resize.flags, kOpRealloc, resize.new_size, resize.place, resize.trace};
  const int tid = current_tid();
  begin_block(block, raw, tid);
  const ScopedLock lock(tid);
  const Counters counters = counters_for(resize.flags);
  counters.allocated(kOpRealloc, resize.new_size);
  if (resize.old_size > resize.new_size) counters.shrunk();
  count_moved_chunks(counters, resize, address_of(raw));
  return link_new_block(block, raw);
}

[[gnu::always_inline]] inline void* replace_block(Resize* resize) {
  place_new_block(resize);
  if (size_wraps(resize->place, resize->new_size)) return fail_resize(*resize);
  void* raw = resize_raw(*resize);
  if (raw == nullptr) return fail_resize(*resize);
  return make_new_block(*resize, raw);
}

// Where both headers are as most are, the compiler knows where all of them lies.
[[gnu::always_inline]] inline void* resize_block(Resize resize) {
  take_old_block(&resize);
  const bool usual = resize.old_offset == kUsualOffset && resize.old_alignment == kPlainAlignLog2;
  if (__builtin_expect(usual && resize.trace.depth == kDefaultDepth, 1)) {
    resize.old_offset = kUsualOffset;
    resize.old_alignment = kPlainAlignLog2;
    resize.trace.depth = kDefaultDepth;
    return replace_block(&resize);
  }
  return replace_block(&resize);
}

// `nowhere`: there is nothing to be looked at.
[[gnu::always_inline]] inline void* reallocate(const Flags& flags, HookFrame frame, void* ptr, size_t size,
                                               bool nowhere) {
  stop_past_limits(flags, size);
  CallTrace trace;
  take_trace(flags, frame, &trace);
  if (ptr == nullptr) return size == 0 ? fail(flags, size, trace) : allocate(flags, size, trace);
  if (nowhere) return raw::resize(ptr, size);
  if (size != 0) return resize_block({flags, address_of(ptr), static_cast<uint32_t>(size), trace});
  raw::release(give_up_block(flags, address_of(ptr), trace));
  return nullptr;
}

// Whether a pointer leads nowhere; else its cache lines are on their way.
bool looks_nowhere(void* ptr) {
  const bool nowhere = leads_nowhere(address_of(ptr));
  if (!nowhere) prefetch_block(address_of(ptr));
  return nowhere;
}

bool is_foreign(void* ptr) {
  return __builtin_expect(other_allocators, 0) && ptr != nullptr && of_other_allocator(ptr);
}

constexpr uint32_t kCheckTriggers = kSlopMalloc | kSlopFree;

[[gnu::noinline, gnu::flatten]] void* realloc_for_any_flags(void* ptr, size_t size, const void*) {
  const InsideChecker inside;
  if (is_foreign(ptr)) return raw::resize(ptr, size);
  const bool nowhere = looks_nowhere(ptr);
  return reallocate(enter_hook(kCheckTriggers), this_frame(), ptr, size, nowhere);
}

}  // namespace

QUARL_TAIL_CALLS [[gnu::noinline, gnu::flatten]] void* realloc_hook(void* ptr, size_t size, const void* caller) {
  if (__builtin_expect(!as_by_default(settings, kCheckTriggers), 0)) return realloc_for_any_flags(ptr, size, caller);
  const InsideChecker inside;
  if (is_foreign(ptr)) return raw::resize(ptr, size);
  const bool nowhere = looks_nowhere(ptr);
  return reallocate(kDefaultFlags, this_frame(), ptr, size, nowhere);
}

}  // namespace quarl
