#include "platform/system.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace quarl::sys {

int open(const char* path, int flags, int mode) {
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE | O_CLOEXEC, mode));
}

int close(int fd) {
  return static_cast<int>(syscall(SYS_close, fd));
}

long read(int fd, void* data, size_t size) {
  return syscall(SYS_read, fd, data, size);
}

long write(int fd, const void* data, size_t size) {
  return syscall(SYS_write, fd, data, size);
}

int64_t seek(int fd, int64_t offset, int whence) {
  int64_t result = 0;
  const long failed = syscall(SYS__llseek, fd, static_cast<unsigned long>(static_cast<uint64_t>(offset) >> 32),
                              static_cast<unsigned long>(offset & 0xFFFFFFFF), &result, whence);
  return failed != 0 ? -1 : result;
}

int truncate(int fd, int64_t size) {
  return ftruncate64(fd, size);
}

int duplicate_above(int fd, int lowest) {
  return static_cast<int>(syscall(SYS_fcntl64, fd, F_DUPFD_CLOEXEC, lowest));
}

bool readable(const char* path) {
  return syscall(SYS_access, path, R_OK) == 0;
}

bool wait_readable(int fd, int milliseconds) {
  struct pollfd wanted {
    fd, POLLIN, 0
  };
  long ready = 0;
  do {
    ready = syscall(SYS_poll, &wanted, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready != 0;
}

bool stat_fd(int fd, struct stat64* out) {
  return fstat64(fd, out) == 0;
}

bool stat_path(const char* path, struct stat64* out) {
  return lstat64(path, out) == 0;
}

int unlink(const char* path) {
  return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

int make_directory(const char* path) {
  return static_cast<int>(syscall(SYS_mkdirat, AT_FDCWD, path, 0777));
}

long read_link(const char* path, char* out, size_t size) {
  return syscall(SYS_readlink, path, out, size);
}

long current_directory(char* out, size_t size) {
  return syscall(SYS_getcwd, out, size);
}

bool write_all(int fd, const void* data, size_t size) {
  const char* next = static_cast<const char*>(data);
  while (size > 0) {
    const long done = write(fd, next, size);
    if (done < 0 && errno == EINTR) continue;
    if (done == 0) errno = ENOSPC;
    if (done <= 0) return false;
    next += done;
    size -= static_cast<size_t>(done);
  }
  return true;
}

bool write_quietly(int fd, const void* data, size_t size) {
  sigset_t raised;
  sigset_t before;
  sigset_t pending;
  sigemptyset(&raised);
  sigaddset(&raised, SIGPIPE);
  sigaddset(&raised, SIGXFSZ);
  sigemptyset(&pending);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &raised, &before);
  const bool done = write_all(fd, data, size);
  const KeepErrno keep;
  const int signal = errno == EPIPE ? SIGPIPE : SIGXFSZ;
  if (!done && (errno == EPIPE || errno == EFBIG) && sigismember(&pending, signal) == 0) {
    // Ours, so it is taken off the thread again. The raw call: the C library's is a cancellation point.
    const struct timespec none {};
    sigset_t own;
    sigemptyset(&own);
    sigaddset(&own, signal);
    syscall(SYS_rt_sigtimedwait, &own, nullptr, &none, 8);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return done;
}

bool word_exists(const uint32_t* word) {
  // Compares the word with itself unread, wakes nobody and moves nobody; its answer says whether the word was there.
  constexpr int kCompareRequeue = FUTEX_CMP_REQUEUE | FUTEX_PRIVATE_FLAG;
  const KeepErrno keep;
  return syscall(SYS_futex, word, kCompareRequeue, 0, 0, word, 0) != -1 || errno != EFAULT;
}

void futex_wait(const uint32_t* word, uint32_t expected) {
  syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

bool futex_wait_for(const uint32_t* word, uint32_t expected, int milliseconds) {
  const struct timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
  return syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, expected, &limit, nullptr, 0) == 0 || errno != ETIMEDOUT;
}

void futex_wake(const uint32_t* word, int count) {
  syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

}  // namespace quarl::sys

namespace quarl {

KeepErrno::KeepErrno() : saved_(errno) {}
KeepErrno::~KeepErrno() {
  errno = saved_;
}

}  // namespace quarl
