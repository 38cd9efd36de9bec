// What the checker needs of glibc besides the allocator.
#include <dlfcn.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/libc_hooks.h"
#include "platform/live_threads.h"
#include "platform/system_call.h"

extern "C" __attribute__((visibility("hidden"))) void quarl_call_outermost(void (*end)(void*));

namespace quarl {
namespace {

// Cleanup handlers of C code are jumped to, in the frames of the program, whose unwinding would go on from there.
void drop_cleanup_handlers() {
  __pthread_unwind_buf_t own{};
  __pthread_register_cancel(&own);
  __pthread_unwind_buf_t* first = &own;  // at last the one with which the C library began the thread
  while (first->__pad[0] != nullptr) first = static_cast<__pthread_unwind_buf_t*>(first->__pad[0]);
  own.__pad[0] = first == &own ? nullptr : first;
  __pthread_unregister_cancel(&own);
}

}  // namespace

// Frames of the program are not unwound: one that may not be left so (noexcept) would end the process. glibc's
// pthread_exit needs libgcc_s.so.1 and aborts the process where the board has none; there the thread ends without any
// destructor, and the last thread ends the process as pthread_exit would.
void end_thread() {
  if (dlopen("libgcc_s.so.1", RTLD_NOW) != nullptr) {
    drop_cleanup_handlers();
    quarl_call_outermost(pthread_exit);
  }
  if (live_threads() == 1) exit(0);
  for (;;) system_call(SYS_exit, 0);
}

const char* error_text(int error) {
  const char* text = strerrordesc_np(error);
  return text != nullptr ? text : "Unknown error";
}

}  // namespace quarl
