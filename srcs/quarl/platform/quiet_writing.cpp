// SPDX-License-Identifier: Apache-2.0
// What writes, without the signals by which the kernel would end the program for it.
#include <errno.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "platform/confinement.h"
#include "platform/system.h"
#include "platform/system_call.h"

namespace quarl::sys {
namespace {

sigset_t set_of(int signal) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  return set;
}

// Takes the signal off the thread, where it is blocked. The raw call: the C library's is a cancellation point.
void take_off(int signal) {
  const KeepErrno keep;
  const struct timespec none {};
  const sigset_t set = set_of(signal);
  system_call(SYS_rt_sigtimedwait, &set, nullptr, &none, 8);
}

// The call, without the signal that comes to the thread when nobody reads a pipe any more (EPIPE), or at the limit of
// the file size (EFBIG). One that waited for the program before stays.
template <typename Call>
bool quietly(Call call) {
  const OwnCall own;
  if (own.refused()) return false;
  sigset_t raised = set_of(SIGPIPE);
  sigset_t before;
  sigset_t pending;
  sigaddset(&raised, SIGXFSZ);
  sigemptyset(&pending);
  set_signal_mask(SIG_BLOCK, &raised, &before);
  // One that was not blocked cannot have waited.
  if (sigismember(&before, SIGPIPE) == 1 || sigismember(&before, SIGXFSZ) == 1) sigpending(&pending);
  const bool done = call();
  const int signal = done ? 0 : errno == EPIPE ? SIGPIPE : errno == EFBIG ? SIGXFSZ : 0;
  if (signal != 0 && sigismember(&pending, signal) == 0) take_off(signal);
  set_signal_mask(SIG_SETMASK, &before, nullptr);
  return done;
}

}  // namespace

bool write_quietly(int fd, const void* data, size_t size) {
  return quietly([=] { return write_all(fd, data, size); });
}

bool write_quietly_at(int fd, int64_t offset, const void* data, size_t size) {
  return quietly([=] { return write_all_at(fd, offset, data, size); });
}

long write_once_quietly(int fd, const void* data, size_t size) {
  long written = -1;
  quietly([&] {
    do {
      written = write(fd, data, size);
    } while (written < 0 && errno == EINTR);
    return written >= 0;
  });
  return written;
}

bool truncate(int fd, int64_t size) {
  return quietly([=] { return ftruncate64(fd, size) == 0; });
}

}  // namespace quarl::sys
