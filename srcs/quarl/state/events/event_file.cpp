// SPDX-License-Identifier: Apache-2.0
#include "state/events/event_file.h"

#include <errno.h>
#include <fcntl.h>

#include "platform/print.h"
#include "platform/system.h"

namespace quarl {
namespace {

constexpr int kFlags = O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY;

}  // namespace

bool EventFile::settle(const char* path) {
  static char directory[kPathSize];
  const bool relative = path[0] != '/' && sys::current_directory(directory, sizeof directory) > 1 && *directory == '/';
  Text(path_, sizeof path_).format(relative ? "%s/%s" : "%s%s", relative ? directory : "", path).terminate();
  return open();
}

// A FIFO or a device that is there is not asked for with O_CREAT, which the kernel may refuse for another user's.
bool EventFile::open() {
  descriptor_.forget();
  const bool opened =
      descriptor_.open(path_, kFlags) || (errno == ENOENT && !made_ && descriptor_.open(path_, kFlags | O_CREAT));
  made_ = made_ || opened;
  return opened;
}

bool EventFile::end_cut_line() {
  if (cut_) cut_ = sys::write_once_quietly(descriptor_.fd(), "\n", 1) != 1;
  return !cut_;
}

bool EventFile::write(const char* line, size_t size) {
  if (!ready() || !end_cut_line()) return false;
  long written = sys::write_once_quietly(descriptor_.fd(), line, size);
  // A thread of the program may close it at any moment.
  if (written < 0 && errno == EBADF && open()) written = sys::write_once_quietly(descriptor_.fd(), line, size);
  if (written > 0 && static_cast<size_t>(written) < size) cut_ = true;
  return written == static_cast<long>(size);
}

}  // namespace quarl
