// SPDX-License-Identifier: Apache-2.0
// What the checker needs of glibc besides the allocator.
//
// One build serves all of its versions: what a version has under another name, in another library or not at all is
// looked for as the program runs.
#include <dlfcn.h>
#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/glibc/glibc.h"
#include "platform/glibc/loaded_symbols.h"
#include "platform/libc_hooks.h"
#include "platform/live_threads.h"
#include "platform/system_call.h"

extern "C" __attribute__((visibility("hidden"))) void quarl_call_outermost(void (*end)(void*));

namespace quarl {
namespace {

// Before 2.34 a program without libdl has no dlopen; there the C library opens libraries for itself by another name.
// What the loader allocates for it is the checker's, and never told as kept by the program.
void* open_library(const char* name) {
  const InsideChecker inside;
  using Open = void* (*)(const char*, int);
  constexpr int kNotByTheLoader = INT_MIN;  // a bit that dlopen adds
  if (void* open = glibc::next_function("dlopen")) return reinterpret_cast<Open>(open)(name, RTLD_NOW);
  void* open = glibc::libc_symbol("__libc_dlopen_mode");
  return open != nullptr ? reinterpret_cast<Open>(open)(name, RTLD_NOW | kNotByTheLoader) : nullptr;
}

template <typename Function>
Function thread_function(const char* name) {
  return reinterpret_cast<Function>(glibc::first_function(name).address);
}

// Cleanup handlers of C code are jumped to, in the frames of the program, whose unwinding would go on from there.
void drop_cleanup_handlers() {
  using Change = decltype(&__pthread_register_cancel);  // on i686 with its argument in a register
  const auto put = thread_function<Change>("__pthread_register_cancel");
  const auto take = thread_function<Change>("__pthread_unregister_cancel");
  if (put == nullptr || take == nullptr) return;
  __pthread_unwind_buf_t own{};
  put(&own);
  __pthread_unwind_buf_t* first = &own;  // at last the one with which the C library began the thread
  while (first->__pad[0] != nullptr) first = static_cast<__pthread_unwind_buf_t*>(first->__pad[0]);
  own.__pad[0] = first == &own ? nullptr : first;
  take(&own);
}

// The kernel counts the threads that an emulator runs for itself, too; so the C library's word, where it has one, is
// asked first.
bool last_thread() {
  const auto* single = static_cast<const char*>(glibc::libc_symbol("__libc_single_threaded"));
  return (single != nullptr && *single != 0) || live_threads() == 1;
}

}  // namespace

// Frames of the program are not unwound: one that may not be left so (noexcept) would end the process. glibc's
// pthread_exit needs libgcc_s.so.1 and aborts the process where the board has none; there the thread ends without any
// destructor, and the last thread ends the process as pthread_exit would.
void end_thread() {
  if (open_library("libgcc_s.so.1") != nullptr) {
    drop_cleanup_handlers();
    quarl_call_outermost(pthread_exit);
  }
  if (last_thread()) exit(0);
  for (;;) system_call(SYS_exit, 0);
}

// Before 2.34 the functions are in a library of their own, which a program without threads does not have.
bool start_thread(void* (*run)(void*)) {
  errno = ENOSYS;
  if (glibc::first_function("pthread_create").address == nullptr && open_library("libpthread.so.0") == nullptr)
    return false;
  const auto create = thread_function<decltype(&pthread_create)>("pthread_create");
  const auto detach = thread_function<decltype(&pthread_detach)>("pthread_detach");
  if (create == nullptr || detach == nullptr) return false;
  pthread_t thread;
  errno = create(&thread, nullptr, run, nullptr);
  return errno == 0 && detach(thread) == 0;
}

namespace {

// From 2.32 on by a function, before by a table.
using Describe = const char* (*)(int error);
constinit Describe describe = nullptr;
constinit const char* const* descriptions = nullptr;
constinit const int* description_count = nullptr;

}  // namespace

void glibc::find_error_texts() {
  describe = reinterpret_cast<Describe>(libc_symbol("strerrordesc_np"));
  descriptions = static_cast<const char* const*>(libc_symbol("_sys_errlist"));
  description_count = static_cast<const int*>(libc_symbol("_sys_nerr"));
}

const char* error_text(int error) {
  const char* text = nullptr;
  if (describe != nullptr) {
    text = describe(error);
  } else if (descriptions != nullptr && description_count != nullptr && error >= 0 && error < *description_count) {
    text = descriptions[error];
  }
  return text != nullptr ? text : "Unknown error";
}

}  // namespace quarl
