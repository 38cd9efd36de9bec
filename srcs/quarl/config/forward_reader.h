// SPDX-License-Identifier: Apache-2.0
// Reads a configuration file from its beginning to its end, so that a pipe will do as well.
#pragma once

#include <cstdint>

#include "config/file_lines.h"

namespace quarl {

class ForwardReader {
 public:
  // For a writer that has nothing to say yet it waits so many milliseconds each time, then takes it for the end.
  explicit ForwardReader(int patience) : patience_(patience) {}
  ~ForwardReader() { close(); }
  ForwardReader(const ForwardReader&) = delete;
  ForwardReader& operator=(const ForwardReader&) = delete;

  bool open(const char* path);  // waits for nobody
  void close();

  // Up to kReadSize bytes from that offset on, which is none before the last one. Returns their number, 0 at the end.
  long read_at(int64_t offset, char* out);

 private:
  void fill();
  bool wait() const;

  int fd_ = -1;
  int patience_;
  int64_t start_ = 0;  // offset of the first byte held
  int held_ = 0;
  bool ended_ = false;
  char bytes_[kReadSize];
};

}  // namespace quarl
