// SPDX-License-Identifier: Apache-2.0
// The memory map of the process, as the text of /proc/PID/maps in the log says it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quarl::report {

struct Mapping {
  uint64_t start = 0;   // first byte
  uint64_t end = 0;     // first byte behind; 64 bits wide, so that a map may end at 4 GiB
  uint64_t offset = 0;  // of `start` in the file
  bool executable = false;
  std::string path;  // empty for anonymous memory, "[heap]" and the like as the kernel names them
};

class Maps {
 public:
  // Reads the text up to its NUL or end. A line that makes no sense ends the reading: the section may have been cut.
  static Maps parse(std::string_view text);

  // The mapping that holds `address`, or null.
  const Mapping* find(uint32_t address) const;
  const std::vector<Mapping>& all() const { return mappings_; }
  // All mappings of the file at `path`.
  std::vector<Mapping> of_file(const std::string& path) const;
  // Path of the program: the first file mapped executable that is not named like a shared object; empty when there is
  // none.
  std::string program() const;
  bool operator==(const Maps& other) const;

 private:
  std::vector<Mapping> mappings_;  // sorted by start, without overlap
};

// True for a mapping of a file rather than of anonymous or special memory.
bool is_file(const Mapping& mapping);

// The last component of a path.
std::string base_name(const std::string& path);

}  // namespace quarl::report
