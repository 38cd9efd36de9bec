// SPDX-License-Identifier: Apache-2.0
// What the checker expects of the C library, all of it. Nothing else in the code knows which C library it runs on.
//
// Two ways satisfy it: `native/` (an embedded C library that offers allocation hooks itself) and `glibc/` (our own thin
// layer over a C library without them). The build chooses one. What the word before a raw block means is chunk.h.
#pragma once

#include <signal.h>

#include <cstddef>
#include <cstdint>

extern "C" {

// The six hook variables: when one is set, the public entry of that name calls it instead of the raw entry.
// Plain words; the last argument of the allocation hooks is the caller's return address.
extern void* (*__malloc_hook)(size_t size, const void* caller);
extern void (*__free_hook)(void* ptr, const void* caller);
extern void* (*__realloc_hook)(void* ptr, size_t size, const void* caller);
extern void* (*__memalign_hook)(size_t alignment, size_t size, const void* caller);
extern void* (*__mmap_hook)(void* addr, size_t length, int prot, int flags, int fd, long offset);
extern int (*__munmap_hook)(void* addr, size_t length);

// The C library may call this at its own initialisation, on any thread: the callee must be safe to enter again.
extern void (*__malloc_initialize_hook)(void);

// The raw entries: what the public entries do when no hook is set. They never consult a hook variable. Blocks are
// aligned to 8 (to the power of two `alignment`), and before each lies its chunk word.
void* ext_malloc(size_t size);
void ext_free(void* ptr);
void* ext_realloc(void* ptr, size_t size);
void* ext_memalign(size_t alignment, size_t size);
void* ext_mmap(void* addr, size_t length, int prot, int flags, int fd, long offset);
int ext_munmap(void* addr, size_t length);

// Kernel task id of the calling thread.
int pthread_self_pid(void);

}  // extern "C"

namespace quarl {

// Prepares the raw entries. Called once by the constructor, before any hook is installed.
void prepare_raw_entries();

// How the layer deals with a block that carries a header. Blocks outlive the hooks: destructors of other libraries and
// other threads release them after the hooks are gone. A C library with hooks of its own has no use for it.
struct HeadedBlock {
  enum Kind : unsigned char { kNone, kSound, kDamaged };
  Kind kind;         // kNone: the pointer carries no header; kDamaged: its header cannot be believed
  void* raw;         // null unless it is sound
  size_t user_size;  // bytes that its user asked for
};
struct HeadedBlockAccess {
  HeadedBlock (*find)(void* user);
  void (*forget)(void* user);  // before the raw block goes back: the pointer is no headed block any more
};
void set_headed_block_access(const HeadedBlockAccess& access);

// What the checker does around the setting of a filter of system calls (seccomp), on the thread that sets it: `before`
// says whether `after` is to be called, which hears whether the filter is set.
struct FilterSteps {
  bool (*before)(bool every_thread);  // the filter is to hold for every thread
  void (*after)(bool set);
};
void set_filter_steps(const FilterSteps& steps);

// What the checker does around fork, on the thread that forks: `before` is the last step of all libraries, the others
// are the first.
struct ForkSteps {
  void (*before)();
  void (*in_parent)();
  void (*in_child)();
};
void set_fork_steps(const ForkSteps& steps);

// A handler of the checker's that stands in for the default action of some signals. To the program it is the default
// action, where it asks what is set and where it sets SIG_DFL: `put` has the handler installed in its place then, where
// it is wanted. A C library with hooks of its own shows what is installed.
struct StandIn {
  void (*handler)(int, siginfo_t*, void*);
  void (*put)(int number);
};
void set_stand_in(const StandIn& stand_in);

// sigaction of the C library, past the stand-in.
int set_signal_action(int number, const struct sigaction* wanted, struct sigaction* before);

// `told` hears of a mapping of the allocator's own whose size changed in its place: the mapping hooks see its making
// and its end only. Called on the thread that resizes, with nothing held.
void set_mapping_resized(void (*told)(void* base, size_t old_size, size_t size));

// Blocks of an allocator that stands between the checker and the C library (a library that the program is linked with
// brings its own). They may come to free and realloc; nothing below them is ours to read.
extern bool other_allocators;
bool of_other_allocator(void* ptr);

// Blocks given out without a header: by the layer, before the hooks were there or past them, and by the hooks while
// headers are off. `take` says whether it is one and forgets it; `keep` is for one that is given out, or was taken and
// stays the application's all the same. `keep` may allocate, from the C library alone.
bool is_bare_block(void* ptr);
bool take_bare_block(void* ptr);
void keep_bare_block(void* ptr);

// Bytes to which the distance from a raw block to its user is rounded at least: 8, or what the program was promised. A
// constant of the process from prepare_raw_entries on, before which no block has a header.
extern uint32_t least_alignment;

// What the allocator aligns each raw block to that is no mapping, 8 or 16; a constant from prepare_raw_entries on.
extern uint32_t raw_alignment;

// Bytes that the allocator adds to each request for a check of its own, 0 or 1; a constant from prepare_raw_entries on.
extern uint32_t allocator_bytes;

// The program was promised what this C library promises, over and above what the hooks do; and that standard output is
// its own: what goes wrong with the checker's files is not told there.
bool keeps_libc_promises();

// A failure that a hook decided on by itself: errno becomes ENOMEM where the program was promised so.
void tell_failure();

// Called when the hooks are installed: takes them back where the program's own allocator is to be left alone.
void settle_hooks();

// Ends the calling thread as pthread_exit does, with the destructors of thread-specific and thread-local data, but
// without unwinding its frames and without its cleanup handlers.
[[noreturn]] void end_thread();

// A detached thread with the default stack: exit handlers of the application may run on it. False with errno.
bool start_thread(void* (*run)(void*));

// Text of an errno value in English. Safe in a signal handler.
const char* error_text(int error);

}  // namespace quarl
