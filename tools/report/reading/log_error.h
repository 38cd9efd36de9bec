// SPDX-License-Identifier: Apache-2.0
// A log that cannot be read: what is wrong and at which byte of the file.
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace quarl::report {

class LogError : public std::runtime_error {
 public:
  LogError(const std::string& path, uint64_t offset, const std::string& what)
      : std::runtime_error(fmt::format("{}: at offset {}: {}", path, offset, what)), offset_(offset) {}

  // Bytes from the start of the file to the field or section that is wrong.
  uint64_t offset() const { return offset_; }

 private:
  uint64_t offset_;
};

}  // namespace quarl::report
