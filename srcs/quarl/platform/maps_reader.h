// SPDX-License-Identifier: Apache-2.0
// Reads /proc/self/maps line by line with raw system calls and a small buffer: no allocation, safe in a signal
// handler.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quarl {

struct MapsLine {
  uintptr_t low;
  uintptr_t high;
  bool readable;
  bool executable;
  bool file;         // backed by a file
  uint32_t offset;   // in that file, the low 32 bits
  uint64_t file_id;  // of device and inode: different for different files
};

inline constexpr const char* kOwnMaps = "/proc/self/maps";

class MapsReader {
 public:
  MapsReader() : MapsReader(nullptr, 0) {}
  // Each line's path, as the kernel writes it, goes to path[0, size), ended by a NUL; "" where there is none.
  // `spare`: a descriptor of the same file, read from its beginning where that cannot be opened (any more); or -1.
  MapsReader(char* path, size_t size, int spare = -1);
  ~MapsReader();
  MapsReader(const MapsReader&) = delete;
  MapsReader& operator=(const MapsReader&) = delete;

  // False at the end, and at once when the file cannot be opened.
  bool next(MapsLine* line);

 private:
  bool fill();       // the buffer, once it is used up; false at the end
  int get();         // next character, -1 at the end
  bool skip_line();  // the rest of it; whether there was a slash
  void keep_path(const char* part, size_t length);
  uintptr_t hex(int* stop);

  int fd_;
  const bool opened_;
  char* path_;
  size_t path_size_;
  size_t path_used_ = 0;
  size_t used_ = 0;
  size_t filled_ = 0;
  char buffer_[1024];
};

}  // namespace quarl
