// What the checker needs of glibc besides the allocator.
#include <dlfcn.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/seam.h"

namespace quarl {
namespace {

bool only_thread() {
  struct stat64 tasks {};
  return stat64("/proc/self/task", &tasks) == 0 && tasks.st_nlink == 3;  // ".", ".." and one task
}

}  // namespace

// glibc's pthread_exit needs libgcc_s.so.1 and aborts the process where the board has none; there the thread ends
// without running its cleanup handlers, and the last thread ends the process as pthread_exit would.
void end_thread() {
  if (dlopen("libgcc_s.so.1", RTLD_NOW) != nullptr) pthread_exit(nullptr);
  if (only_thread()) exit(0);
  for (;;) syscall(SYS_exit, 0);
}

const char* error_text(int error) {
  const char* text = strerrordesc_np(error);
  return text != nullptr ? text : "Unknown error";
}

}  // namespace quarl
