// SPDX-License-Identifier: Apache-2.0
// The C library that the tested pieces expect: its raw entries are the plain ones, nothing is ever hooked.
#include "platform/libc_hooks.h"
#include "platform/system_call.h"

#include <errno.h>
#include <malloc.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {

void* ext_malloc(size_t size) {
  return malloc(size);
}
void ext_free(void* ptr) {
  free(ptr);
}
void* ext_realloc(void* ptr, size_t size) {
  return realloc(ptr, size);
}
void* ext_memalign(size_t alignment, size_t size) {
  return memalign(alignment, size);
}
void* ext_mmap(void* addr, size_t length, int prot, int flags, int fd, long offset) {
  return mmap(addr, length, prot, flags, fd, offset);
}
int ext_munmap(void* addr, size_t length) {
  return munmap(addr, length);
}
int pthread_self_pid(void) {
  return static_cast<int>(syscall(SYS_gettid));
}

}  // extern "C"

namespace quarl {

constinit SystemCall system_call = syscall;

void prepare_raw_entries() {}
void set_headed_block_access(const HeadedBlockAccess&) {}
void end_thread() {
  pthread_exit(nullptr);
}
const char* error_text(int error) {
  return strerrordesc_np(error);
}

}  // namespace quarl

// No block was given out past the checker.
bool quarl::is_bare_block(void*) {
  return false;
}
bool quarl::take_bare_block(void*) {
  return false;
}
constinit uint32_t quarl::least_alignment = 8;
constinit uint32_t quarl::raw_alignment = 8;
constinit uint32_t quarl::allocator_bytes = 0;
bool quarl::keeps_libc_promises() {
  return false;
}
