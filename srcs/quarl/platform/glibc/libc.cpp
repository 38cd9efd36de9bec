// What the checker needs of glibc besides the allocator.
#include <dlfcn.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/libc_hooks.h"
#include "platform/live_threads.h"

namespace quarl {
// glibc's pthread_exit needs libgcc_s.so.1 and aborts the process where the board has none; there the thread ends
// without running its cleanup handlers, and the last thread ends the process as pthread_exit would.
void end_thread() {
  if (dlopen("libgcc_s.so.1", RTLD_NOW) != nullptr) pthread_exit(nullptr);
  if (live_threads() == 1) exit(0);
  for (;;) syscall(SYS_exit, 0);
}

const char* error_text(int error) {
  const char* text = strerrordesc_np(error);
  return text != nullptr ? text : "Unknown error";
}

}  // namespace quarl
