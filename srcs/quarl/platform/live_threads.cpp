// SPDX-License-Identifier: Apache-2.0
#include "platform/live_threads.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/print.h"
#include "platform/system.h"

namespace quarl {
namespace {

// The state letter follows the name in parentheses, which may hold anything.
bool main_thread_ended() {
  TextBuffer<64> path;
  path.format("/proc/self/task/%d/stat", static_cast<int>(getpid())).terminate();
  const int fd = sys::open(path.data(), O_RDONLY);
  if (fd < 0) return false;
  char text[128] = "";
  sys::read(fd, text, sizeof text - 1);
  sys::close(fd);
  const char* name_end = strrchr(text, ')');
  return name_end != nullptr && strncmp(name_end, ") Z", 3) == 0;
}

}  // namespace

int live_threads() {
  const KeepErrno keep;
  struct stat64 tasks {};
  if (!sys::stat_path("/proc/self/task", &tasks) || tasks.st_nlink < 3) return 0;
  const int entries = static_cast<int>(tasks.st_nlink) - 2;  // without "." and ".."
  return main_thread_ended() ? entries - 1 : entries;
}

}  // namespace quarl
