// SPDX-License-Identifier: Apache-2.0
#include "config/forward_reader.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>

#include "platform/system.h"

namespace quarl {

bool ForwardReader::open(const char* path) {
  fd_ = sys::open(path, O_RDONLY | O_NONBLOCK);
  return fd_ >= 0;
}

void ForwardReader::close() {
  if (fd_ >= 0) sys::close(fd_);
  fd_ = -1;
}

long ForwardReader::read_at(int64_t offset, char* out) {
  const auto passed = static_cast<int>(offset - start_);
  if (passed > held_) return 0;
  held_ -= passed;
  memmove(bytes_, bytes_ + passed, static_cast<size_t>(held_));
  start_ = offset;
  fill();
  memcpy(out, bytes_, static_cast<size_t>(held_));
  return held_;
}

// A pipe that nobody has opened for writing yet reads as one that has ended: only the wait tells them apart.
void ForwardReader::fill() {
  while (!ended_ && held_ < kReadSize) {
    const long got = wait() ? sys::read(fd_, bytes_ + held_, static_cast<size_t>(kReadSize - held_)) : 0;
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    ended_ = got <= 0;
    if (got > 0) held_ += static_cast<int>(got);
  }
}

bool ForwardReader::wait() const {
  return sys::wait_readable(fd_, patience_);
}

}  // namespace quarl
