// SPDX-License-Identifier: Apache-2.0
// The malloc and memalign hooks.
#include <errno.h>

#include "platform/libc_hooks.h"
#include "quarlheap/hooks/hook_call.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/hooks/limits.h"
#include "quarlheap/hooks/new_block.h"
#include "state/raw_calls.h"

namespace quarl {
namespace {

[[gnu::cold, gnu::noinline]] void* fail(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) {
  count_failure(flags, op, size, trace);
  if (flags.prof()) errno = ENOMEM;
  tell_failure();
  return nullptr;
}

// The smallest alignment that the checker serves for a wanted one: 8, 16, or the next power of two.
uint32_t adjusted_alignment(uint32_t wanted) {
  uint32_t alignment = wanted <= 8 ? 8 : 16;
  while (alignment < wanted && alignment != 0) alignment *= 2;
  return alignment;
}

uint32_t log2_of(uint32_t power_of_two) {
  return static_cast<uint32_t>(__builtin_ctz(power_of_two));
}

// Without headers the caller's alignment stays as it is; 0 when it is beyond any power of two.
uint32_t served_alignment(const Flags& flags, uint32_t wanted) {
  return flags.header() ? adjusted_alignment(wanted) : wanted;
}

[[gnu::always_inline]] inline void* raw_memalign(uint32_t alignment, uint32_t size) {
  return alignment <= 8 ? raw::allocate(size) : raw::allocate_aligned(alignment, size);
}

[[gnu::always_inline]] inline void* allocate_traced(const Flags& flags, size_t size, const CallTrace& trace) {
  if (random_failure(flags)) return fail(flags, kOpMalloc, size, trace);
  stop_past_limits(flags, size);
  const Placement place = place_block(flags, kOpMalloc, trace.depth);
  if (place.raw_size(size) <= place.raw_size(0))
    return fail(flags, kOpMalloc, size, trace);  // none, or it wraps around
  void* raw = raw::allocate(place.raw_size(size));
  if (raw == nullptr) return fail(flags, kOpMalloc, size, trace);
  return finish_block({flags, kOpMalloc, size, place, trace}, raw);
}

// Where most have the default depth, the compiler knows where all of their header lies.
[[gnu::always_inline]] inline void* allocate(const Flags& flags, HookFrame frame, size_t size) {
  CallTrace trace;
  take_trace(flags, frame, &trace);
  if (__builtin_expect(trace.depth == kDefaultDepth, 1)) {
    trace.depth = kDefaultDepth;
    return allocate_traced(flags, size, trace);
  }
  return allocate_traced(flags, size, trace);
}

[[gnu::always_inline]] inline void* allocate_aligned(const Flags& flags, HookFrame frame, size_t wanted, size_t size) {
  CallTrace trace;
  take_trace(flags, frame, &trace);
  if (random_failure(flags)) return fail(flags, kOpMemalign, size, trace);
  stop_past_limits(flags, size);
  const uint32_t alignment = served_alignment(flags, wanted);
  if (flags.header() && alignment == 0) return fail(flags, kOpMemalign, size, trace);
  const uint32_t align_log2 = flags.header() ? log2_of(alignment) : 0;
  const Placement place = place_block(flags, kOpMemalign, trace.depth, align_log2);
  if (size_wraps(place, size)) return fail(flags, kOpMemalign, size, trace);
  void* raw = raw_memalign(alignment, place.raw_size(size));
  if (raw == nullptr) return fail(flags, kOpMemalign, size, trace);
  return finish_block({flags, kOpMemalign, size, place, trace}, raw);
}

[[gnu::noinline, gnu::flatten]] void* malloc_for_any_flags(size_t size, const void*) {
  const InsideChecker inside;
  return allocate(enter_hook(kSlopMalloc), this_frame(), size);
}

QUARL_TAIL_CALLS [[gnu::noinline, gnu::flatten]] void* malloc_with_records(size_t size, const void* caller) {
  if (!as_by_default_with_records(settings, kSlopMalloc)) return malloc_for_any_flags(size, caller);
  const InsideChecker inside;
  return allocate(kRecordingFlags, this_frame(), size);
}

[[gnu::noinline]] void* memalign_for_any_flags(size_t wanted, size_t size, const void*) {
  const InsideChecker inside;
  return allocate_aligned(enter_hook(kSlopMalloc), this_frame(), wanted, size);
}

}  // namespace

QUARL_TAIL_CALLS [[gnu::noinline, gnu::flatten]] void* malloc_hook(size_t size, const void* caller) {
  if (__builtin_expect(!as_by_default(settings, kSlopMalloc), 0)) return malloc_with_records(size, caller);
  const InsideChecker inside;
  return allocate(kDefaultFlags, this_frame(), size);
}

QUARL_TAIL_CALLS [[gnu::noinline]] void* memalign_hook(size_t wanted, size_t size, const void* caller) {
  if (__builtin_expect(!as_by_default(settings, kSlopMalloc), 0)) return memalign_for_any_flags(wanted, size, caller);
  const InsideChecker inside;
  return allocate_aligned(kDefaultFlags, this_frame(), wanted, size);
}

}  // namespace quarl
