// A socket of the agent's. The application may close descriptors that it does not know, and the number may then be its
// own: the socket's identity is compared before use, and a descriptor that is no longer ours is forgotten, not closed.
#pragma once

#include <cstdint>

namespace quarl {

class Socket {
 public:
  bool take(int fd);  // false for -1
  int fd() const { return fd_; }
  bool is_ours() const;
  void close();

 private:
  int fd_ = -1;
  uint64_t inode_ = 0;
};

}  // namespace quarl
