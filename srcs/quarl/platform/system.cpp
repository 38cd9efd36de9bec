#include "platform/system.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/syscall.h>
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

bool stat_fd(int fd, struct stat64* out) {
  return fstat64(fd, out) == 0;
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

void futex_wait(const uint32_t* word, uint32_t expected) {
  syscall(SYS_futex, word, FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
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
