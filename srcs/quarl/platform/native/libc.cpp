// SPDX-License-Identifier: Apache-2.0
// What the checker needs of an embedded C library that offers the hooks itself.
#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include "platform/libc_hooks.h"
#include "platform/system_call.h"

namespace quarl {

void prepare_raw_entries() {}

constinit SystemCall system_call = syscall;

// The hooks stay with the library to the end; blocks never reach it without them.
void set_headed_block_access(const HeadedBlockAccess&) {}

// The order among libraries is that of their registration.
void set_fork_steps(const ForkSteps& steps) {
  pthread_atfork(steps.before, steps.in_parent, steps.in_child);
}

// A filter of system calls is not noticed.
void set_filter_steps(const FilterSteps&) {}

void set_stand_in(const StandIn&) {}
int set_signal_action(int number, const struct sigaction* wanted, struct sigaction* before) {
  return sigaction(number, wanted, before);
}

// The C library's chunks do not change in place, and nobody stands between it and the checker.
void set_mapping_resized(void (*)(void*, size_t, size_t)) {}
constinit bool other_allocators = false;
bool of_other_allocator(void*) {
  return false;
}
bool is_bare_block(void*) {
  return false;
}
bool take_bare_block(void*) {
  return false;
}
void keep_bare_block(void*) {}
void settle_hooks() {}

// The hooks' promises are the C library's.
constinit uint32_t least_alignment = 8;
constinit uint32_t raw_alignment = 8;
constinit uint32_t allocator_bytes = 0;
void tell_failure() {}
bool keeps_libc_promises() {
  return false;
}

void end_thread() {
  pthread_exit(nullptr);
}

bool start_thread(void* (*run)(void*)) {
  pthread_t thread;
  errno = pthread_create(&thread, nullptr, run, nullptr);
  return errno == 0 && pthread_detach(thread) == 0;
}

const char* error_text(int error) {
  return strerror(error);
}

}  // namespace quarl
