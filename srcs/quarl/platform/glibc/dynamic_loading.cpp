// SPDX-License-Identifier: Apache-2.0
// Two ways past our entries that a program takes as it runs, closed where blocks are ours.
//
// A library opened with RTLD_DEEPBIND has its calls bound to the C library's malloc and free, and hands our blocks to
// an allocator that has never given them out. The flag is cleared. A namespace of its own (dlmopen) has its own C
// library, whose blocks are never ours; nothing is changed there.
//
// Who opens the C library itself and asks that handle for malloc or free (ctypes does) gets ours: what all others call.
//
// And the way by which libraries go, so that they can be told before.
#include <dlfcn.h>
#include <string.h>

#include <cstdint>

#include "platform/glibc/allocators.h"
#include "platform/glibc/loaded_symbols.h"
#include "platform/unloading.h"

namespace quarl::glibc {
namespace {

// Before 2.34 the functions lie in libdl, which is loaded where anybody calls them; a caller that only asks whether
// they are there may find ours alone.
void* nothing_is_found() {
  return nullptr;
}

void* next_or_nothing(const char* name) {
  void* next = next_function(name);
  return next != nullptr ? next : reinterpret_cast<void*>(nothing_is_found);
}

bool blocks_are_ours() {
  find_allocators();
  return !bypassed.everything;
}

uint64_t way_to(const char* name) {
  const auto passing = static_cast<uint32_t>(blocks_are_ours() ? ~RTLD_DEEPBIND : ~0);
  return uint64_t{passing} << 32 | reinterpret_cast<uintptr_t>(next_or_nothing(name));
}

// Entries that go on to the next definition of their name. Who stands between the C library and us and asks it for its
// own would be led around in a circle.
bool goes_on(const char* name) {
  static constexpr const char* kNames[] = {
      "dlopen",  "dlmopen",           "dlsym",   "dlvsym",      "dlclose",       "prctl",
      "syscall", "__register_atfork", "sbrk",    "__sbrk",      "brk",           "sigaction",
      "signal",  "bsd_signal",        "ssignal", "sysv_signal", "__sysv_signal", "sigset"};
  for (const char* each : kNames) {
    if (strcmp(name, each) == 0) return true;
  }
  return false;
}

void* ours_for(const char* name, void* found) {
  void* own = own_function(name);
  if (found == nullptr || own == nullptr || found != libc_symbol(name)) return found;
  return goes_on(name) && next_function(name) != found ? found : own;
}

// What dlsym and dlvsym answer for a handle of dlopen's, for which it does not matter who asks.
void* find_in(void* handle, const char* name) {
  using Find = void* (*)(void*, const char*);
  return ours_for(name, reinterpret_cast<Find>(next_or_nothing("dlsym"))(handle, name));
}
void* find_version_in(void* handle, const char* name, const char* version) {
  using Find = void* (*)(void*, const char*, const char*);
  return ours_for(name, reinterpret_cast<Find>(next_or_nothing("dlvsym"))(handle, name, version));
}

// Whether what a handle leads to may have to be replaced.
bool looks_into_opened(void* handle) {
  return handle != RTLD_DEFAULT && handle != RTLD_NEXT && blocks_are_ours();
}

}  // namespace
}  // namespace quarl::glibc

// For the entries in assembly.
extern "C" {

[[gnu::visibility("hidden")]] uint64_t quarl_way_to_dlopen() {
  return quarl::glibc::way_to("dlopen");
}
[[gnu::visibility("hidden")]] uint64_t quarl_way_to_dlmopen() {
  return quarl::glibc::way_to("dlmopen");
}
[[gnu::visibility("hidden")]] void* quarl_way_to_dlsym(void* handle) {
  using namespace quarl::glibc;
  return looks_into_opened(handle) ? reinterpret_cast<void*>(find_in) : next_or_nothing("dlsym");
}
[[gnu::visibility("hidden")]] void* quarl_way_to_dlvsym(void* handle) {
  using namespace quarl::glibc;
  return looks_into_opened(handle) ? reinterpret_cast<void*>(find_version_in) : next_or_nothing("dlvsym");
}
[[gnu::visibility("hidden")]] void* quarl_way_to_dlclose(void* /*handle*/) {
  if (quarl::before_unloading != nullptr) quarl::before_unloading();
  return quarl::glibc::next_or_nothing("dlclose");
}

}  // extern "C"
