// SPDX-License-Identifier: Apache-2.0
// The floor: the least that any checker of this design does for a block, as an allocator to be preloaded. What the
// checker takes beyond it is what its code may still save.
//
// It takes the trace of 8 return addresses, within the thread's stack and up to main or clone; writes the header and
// the guard of the default items; keeps the list, the numbering and the figures under one lock; and before a block
// goes, it tests that the header names its block, the chunk's size, the guard, and that both neighbours name the block.
// There are no items, no pending work, no damage that is survived: a fault ends the process.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <linux/futex.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "frame.h"
#include "platform/chunk.h"
#include "quarlheap/model/header_layout.h"
#include "spin.h"

extern "C" {
void* __libc_malloc(size_t size);
void __libc_free(void* raw);
void* __libc_realloc(void* raw, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace quarl {
namespace {

constexpr HeaderLayout kLayout = kFullLayout;
constexpr uint32_t kAlignment = 16, kAlignmentLog2 = 4;  // what the C library promises its programs at most
constexpr uint32_t kChunkSlack = 24;                     // bytes by which a chunk may exceed what was asked for
constexpr int kSpins = 100;

struct Figures {
  uint64_t bytes;
  uint32_t calls;
  uint32_t failed;
};

// What all threads share; what malloc and free touch of it is one cache line.
struct alignas(64) Shared {
  uint32_t lock;  // 0: free, 1: taken, 2: taken, and a thread may sleep on it
  Address head, tail;
  uint32_t last_seq_num;
  uint32_t held, peak;  // bytes
  Figures allocations, releases;
  Figures resizes, resize_releases, aligned_allocations, chunk_maps, chunk_unmaps;
  uint32_t clock_sec;
};
constinit Shared shared{};
static_assert(offsetof(Shared, resizes) <= 64);

struct Thread {
  uint32_t tid;  // 0: nothing is known of the thread yet
  uintptr_t stack_low, stack_high;
};
constinit thread_local Thread thread{};

struct Trace {
  uint32_t depth;
  uint32_t words[kDefaultDepth];
};

// Where a trace ends; 0, 0 when the function is not known.
struct Function {
  uint32_t start, size;
  bool holds(uint32_t address) const { return address - start < size; }
};
constinit Function main_function{}, clone_function{};

Function find_function(const char* name) {
  void* address = dlsym(RTLD_DEFAULT, name);
  Dl_info info;
  const Elf32_Sym* symbol = nullptr;
  if (address == nullptr || dladdr1(address, &info, (void**)&symbol, RTLD_DL_SYMENT) == 0 || symbol == nullptr)
    return {};
  return {address_of(address), symbol->st_size};
}

[[gnu::constructor]] void find_outermost_functions() {
  main_function = find_function("main");
  clone_function = find_function("clone");
}

// Once per thread. Asking for the stack allocates; those blocks have no trace.
[[gnu::cold, gnu::noinline]] void learn_thread() {
  thread.tid = static_cast<uint32_t>(syscall(SYS_gettid));
  pthread_attr_t attributes;
  void* low = nullptr;
  size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
  pthread_attr_getstack(&attributes, &low, &size);
  pthread_attr_destroy(&attributes);
  thread.stack_low = address_of(low);
  thread.stack_high = address_of(low) + size;
}

// Of the entry that it is inlined into: its caller comes first.
[[gnu::always_inline]] inline Trace take_trace() {
  if (__builtin_expect(thread.tid == 0, 0)) learn_thread();
  Trace trace;
  trace.depth = 0;
  auto fp = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (fp < thread.stack_low || thread.stack_high == 0) return trace;
  const uintptr_t highest = thread.stack_high - frame::kEnd;
  while (fp <= highest && fp % 4 == 0) {
    const uint32_t address = frame::return_address(fp);
    if (address == 0) break;
    trace.words[trace.depth++] = address;
    if (trace.depth == kDefaultDepth || main_function.holds(address) || clone_function.holds(address)) break;
    const uintptr_t next = frame::caller_frame(fp);
    if (next <= fp) break;
    fp = next;
  }
  return trace;
}

[[gnu::cold, gnu::noinline]] void wait_and_lock() {
  for (uint32_t taken = 1;; taken = 2) {
    for (int spin = 0; spin < kSpins; ++spin) {
      uint32_t free = 0;
      if (__atomic_load_n(&shared.lock, __ATOMIC_RELAXED) == 0 &&
          __atomic_compare_exchange_n(&shared.lock, &free, taken, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
        return;
      }
      relax();
    }
    if (__atomic_exchange_n(&shared.lock, 2, __ATOMIC_ACQUIRE) == 0) return;
    syscall(SYS_futex, &shared.lock, FUTEX_WAIT_PRIVATE, 2, nullptr);
  }
}

struct Locked {
  Locked() {
    uint32_t free = 0;
    if (__builtin_expect(
            !__atomic_compare_exchange_n(&shared.lock, &free, 1, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED), 0)) {
      wait_and_lock();
    }
  }
  ~Locked() {
    if (__builtin_expect(__atomic_exchange_n(&shared.lock, 0, __ATOMIC_RELEASE) == 2, 0)) {
      syscall(SYS_futex, &shared.lock, FUTEX_WAKE_PRIVATE, 1);
    }
  }
};

uint32_t& word(Address p, HeaderWord which) {
  return word_at(p + static_cast<uint32_t>(4 * which));
}

[[noreturn, gnu::cold, gnu::noinline]] void fault(const char* text) {
  (void)!write(2, text, strlen(text));
  abort();
}

// A chunk that the allocator maps for one block counts besides.
[[gnu::always_inline]] inline void count_mapped(Figures& figures, ChunkWord chunk) {
  if (__builtin_expect(!chunk.mapped(), 1)) return;
  ++figures.calls;
  figures.bytes += round_up(chunk.size(), 4096);
}

void* fail(Figures& figures) {
  const Locked locked;
  ++figures.calls;
  ++figures.failed;
  errno = ENOMEM;
  return nullptr;
}

// At the end of the list. The header is complete but for its links.
void link_block(Address p) {
  word(p, kSelfLink) = p | kLayout.self_flags();
  word(p, kNextLink) = kLayout.next_flags();
  word(p, kPrevLink) = shared.tail | kLayout.prev_flags();
  uint32_t& from_prev = shared.tail != 0 ? word(shared.tail, kNextLink) : shared.head;
  from_prev |= p;  // an end's flags, or none
  shared.tail = p;
}

[[gnu::always_inline]] inline void* finish_block(Figures& figures, Operation op, uint32_t size, uint32_t align_log2,
                                                 const Trace& trace, void* raw, uint32_t offset) {
  const Address p = address_of(raw) + offset;
  word(p, kUserSize) = size;
  memcpy(pointer_to(p + size), kTailGuard, kGuardSize);
  word_at(p - kLayout.tid_offset()) = thread.tid;
  word_at(p - kLayout.time_offset()) = shared.clock_sec;
  word_at(p - kLayout.trace_info_offset()) = TraceInfo::make(trace.depth, op, align_log2).word;
  const Address lowest = p - kLayout.trace_offset(trace.depth);
  for (uint32_t i = 0; i < trace.depth; ++i) word_at(lowest + 4 * i) = trace.words[i];
  const Locked locked;
  ++figures.calls;
  figures.bytes += size;
  shared.held += size;
  if (shared.held > shared.peak) shared.peak = shared.held;
  count_mapped(shared.chunk_maps, chunk_before(address_of(raw)));
  word_at(p - kLayout.seq_offset()) = ++shared.last_seq_num;
  link_block(p);
  return pointer_to(p);
}

uint32_t offset_for(const Trace& trace, uint32_t alignment) {
  return round_up(kLayout.lowest_offset(trace.depth), alignment);
}

// Tests the block and takes it off the list; returns the way from its raw block to p.
[[gnu::always_inline]] inline uint32_t give_up(Figures& figures, Address p) {
  const Locked locked;
  if (word(p, kSelfLink) != (p | kLayout.self_flags())) fault("floor: no block\n");
  const TraceInfo info{word_at(p - kLayout.trace_info_offset())};
  const uint32_t offset = round_up(kLayout.lowest_offset(info.depth()), 1U << (info.align_log2() & 31));
  const uint32_t size = word(p, kUserSize);
  const ChunkWord chunk = chunk_before(p - offset);
  if (!chunk.mapped() && chunk.size() - chunk_size_for(offset + size + kGuardSize) > kChunkSlack)
    fault("floor: head\n");
  if (memcmp(pointer_to(p + size), kTailGuard, kGuardSize) != 0) fault("floor: tail\n");
  const Address next = word(p, kNextLink) & ~kLinkFlags, prev = word(p, kPrevLink) & ~kLinkFlags;
  uint32_t& from_next = next != 0 ? word(next, kPrevLink) : shared.tail;
  uint32_t& from_prev = prev != 0 ? word(prev, kNextLink) : shared.head;
  if ((from_next & ~kLinkFlags) != p || (from_prev & ~kLinkFlags) != p) fault("floor: links\n");
  ++figures.calls;
  figures.bytes += size;
  shared.held -= size;
  count_mapped(shared.chunk_unmaps, chunk);
  from_next += prev - p;  // the flags stay
  from_prev += next - p;
  word(p, kSelfLink) = QR_FREED_MARK;
  return offset;
}

[[gnu::always_inline]] inline void* take(size_t size, const Trace& trace) {
  const uint32_t offset = offset_for(trace, kAlignment);
  const uint32_t bytes = offset + size + kGuardSize;
  void* raw = bytes > size ? __libc_malloc(bytes) : nullptr;
  if (__builtin_expect(raw == nullptr, 0)) return fail(shared.allocations);
  return finish_block(shared.allocations, kOpMalloc, size, kAlignmentLog2, trace, raw, offset);
}

[[gnu::always_inline]] inline void* take_aligned(size_t alignment, size_t size, const Trace& trace) {
  if (alignment < kAlignment) alignment = kAlignment;
  const uint32_t offset = offset_for(trace, alignment);
  const uint32_t bytes = offset + size + kGuardSize;
  void* raw = bytes > size ? __libc_memalign(alignment, bytes) : nullptr;
  if (raw == nullptr) return fail(shared.aligned_allocations);
  const auto align_log2 = static_cast<uint32_t>(__builtin_ctz(alignment));
  return finish_block(shared.aligned_allocations, kOpMemalign, size, align_log2, trace, raw, offset);
}

}  // namespace
}  // namespace quarl

using namespace quarl;

extern "C" {

QUARL_EXPORT void* malloc(size_t size) {
  return take(size, take_trace());
}

QUARL_EXPORT void free(void* ptr) {
  if (ptr == nullptr) return;
  const Address p = address_of(ptr);
  __libc_free(pointer_to(p - give_up(shared.releases, p)));
}

QUARL_EXPORT void* realloc(void* ptr, size_t size) {
  if (ptr != nullptr && size == 0) return free(ptr), nullptr;
  const Trace trace = take_trace();
  if (ptr == nullptr) return take(size, trace);
  const Address p = address_of(ptr);
  const uint32_t offset = offset_for(trace, kAlignment), old_size = word(p, kUserSize);
  const uint32_t old_offset = give_up(shared.resize_releases, p);
  const uint32_t bytes = (offset > old_offset ? offset : old_offset) + size + kGuardSize;
  auto* raw = static_cast<char*>(bytes > size ? __libc_realloc(pointer_to(p - old_offset), bytes) : nullptr);
  if (raw == nullptr) {
    {
      const Locked locked;
      link_block(p);
    }
    return fail(shared.resizes);
  }
  if (offset != old_offset) memmove(raw + offset, raw + old_offset, size < old_size ? size : old_size);
  return finish_block(shared.resizes, kOpRealloc, size, kAlignmentLog2, trace, raw, offset);
}

QUARL_EXPORT void* calloc(size_t count, size_t size) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) return fail(shared.allocations);
  void* block = take(bytes, take_trace());
  return block != nullptr ? memset(block, 0, bytes) : nullptr;
}

QUARL_EXPORT void* reallocarray(void* ptr, size_t count, size_t size) {
  size_t bytes = 0;
  return __builtin_mul_overflow(count, size, &bytes) ? fail(shared.resizes) : realloc(ptr, bytes);
}

QUARL_EXPORT void* memalign(size_t alignment, size_t size) {
  return take_aligned(alignment, size, take_trace());
}
QUARL_EXPORT void* aligned_alloc(size_t alignment, size_t size) {
  return take_aligned(alignment, size, take_trace());
}
QUARL_EXPORT int posix_memalign(void** out, size_t alignment, size_t size) {
  *out = take_aligned(alignment, size, take_trace());
  return *out != nullptr ? 0 : ENOMEM;
}

QUARL_EXPORT size_t malloc_usable_size(void* ptr) {
  return ptr != nullptr ? word(address_of(ptr), kUserSize) : 0;
}

}  // extern "C"
