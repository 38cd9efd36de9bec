// SPDX-License-Identifier: Apache-2.0
#include "platform/own_descriptor.h"

#include <errno.h>
#include <fcntl.h>

#include "platform/system.h"

namespace quarl {
namespace {

constexpr int kLowestDescriptor = 100;
constexpr int kLeftFree = 16;  // numbers below are the program's, however low its limit is
constexpr int kLastStandard = 2;
constexpr int kTries = 3;
constexpr int kFileMode = 0666;  // before the umask

// Where the program may have no more than so many, the last quarter of them.
int lowest_descriptor() {
  const int most = sys::descriptor_limit();
  if (most > kLowestDescriptor) return kLowestDescriptor;
  return most - most / 4 > kLeftFree ? most - most / 4 : kLeftFree;
}

}  // namespace

int move_up(int fd) {
  const int moved = sys::duplicate_above(fd, lowest_descriptor());
  const bool gone = moved < 0 && errno == EBADF;  // closed by a thread of the application: whoever uses it will see
  if (gone || (moved < 0 && fd > kLastStandard)) return fd;
  sys::close(fd);
  if (moved < 0) errno = EMFILE;
  return moved;
}

bool OwnDescriptor::open(const char* path, int flags) {
  errno = EMFILE;
  if (sys::descriptor_limit() <= kLeftFree) return false;
  for (int tries = kTries; tries > 0; --tries) {
    const int fd = sys::open(path, flags, kFileMode);
    if (fd >= 0 && take(move_up(fd))) return true;
    if (errno != EBADF) break;  // closed by a thread of the application that closes everything
  }
  return false;
}

bool OwnDescriptor::open_again(const char* path, int flags) {
  if (!named_by(path)) {
    errno = ENOENT;
    return false;
  }
  const OwnDescriptor before = *this;
  if (open(path, flags | O_NOFOLLOW) && device_ == before.device_ && inode_ == before.inode_) return true;
  close();
  *this = before;
  return false;
}

bool OwnDescriptor::named_by(const char* path) const {
  struct stat64 info {};
  return inode_ != 0 && sys::stat_path(path, &info) && info.st_dev == device_ && info.st_ino == inode_;
}

bool OwnDescriptor::take(int fd) {
  fd_ = fd;
  struct stat64 info {};
  if (fd < 0 || !sys::stat_fd(fd, &info)) return false;
  device_ = info.st_dev;
  inode_ = info.st_ino;
  return true;
}

bool OwnDescriptor::is_ours(int64_t* size) const {
  struct stat64 info {};
  if (fd_ < 0 || !sys::stat_fd(fd_, &info) || info.st_dev != device_ || info.st_ino != inode_) return false;
  if (size != nullptr) *size = info.st_size;
  return true;
}

void OwnDescriptor::close() {
  if (is_ours()) sys::close(fd_);
  forget();
}

}  // namespace quarl
