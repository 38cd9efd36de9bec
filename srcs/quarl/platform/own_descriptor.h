// SPDX-License-Identifier: Apache-2.0
// A descriptor of the checker's. Applications close descriptors that they do not know, and the number may then belong
// to a file of theirs. So the identity of what lies behind it is compared before use, and a descriptor that is no
// longer ours is forgotten, not closed. Safe in a signal handler.
#pragma once

#include <cstdint>

namespace quarl {

// Moves a descriptor out of the way of programs that expect small numbers for their own. Stays where it is when that
// fails, but never on one of the three standard numbers, which a program that has closed them opens anew: closed then,
// and -1 with errno.
int move_up(int fd);

class OwnDescriptor {
 public:
  // Opens a file at a descriptor that is moved up. False with errno, also where the program may have few descriptors.
  bool open(const char* path, int flags);

  // Opens the file that it had open before, and no other that has taken its name. False with errno.
  bool open_again(const char* path, int flags);

  // The path names the file that is or was open here, not a link to it.
  bool named_by(const char* path) const;

  // A descriptor that was opened elsewhere, -1 for one that was not. False when there is none.
  bool take(int fd);

  int fd() const { return fd_; }

  // Still what was opened; its size in bytes goes to `size`.
  bool is_ours(int64_t* size = nullptr) const;

  void close();  // when it is ours; forgotten in any case
  void forget() { fd_ = -1; }

 private:
  int fd_ = -1;
  uint64_t device_ = 0;
  uint64_t inode_ = 0;
};

}  // namespace quarl
