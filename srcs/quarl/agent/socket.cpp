#include "agent/socket.h"

#include "platform/system.h"

namespace quarl {
namespace {

bool inode_of(int fd, uint64_t* inode) {
  struct stat64 info {};
  if (!sys::stat_fd(fd, &info)) return false;
  *inode = info.st_ino;
  return S_ISSOCK(info.st_mode);
}

}  // namespace

bool Socket::take(int fd) {
  fd_ = fd;
  return fd >= 0 && inode_of(fd, &inode_);
}

bool Socket::is_ours() const {
  uint64_t inode = 0;
  return fd_ >= 0 && inode_of(fd_, &inode) && inode == inode_;
}

void Socket::close() {
  if (is_ours()) sys::close(fd_);
  fd_ = -1;
}

}  // namespace quarl
