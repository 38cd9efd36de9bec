// SPDX-License-Identifier: Apache-2.0
// A regular file that is read at offsets; what lies behind its end reads as nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quarl::report {

class LogFile {
 public:
  // Throws LogError when `path` cannot be opened or is no regular file.
  explicit LogFile(std::string path);
  ~LogFile();
  LogFile(LogFile&& other) noexcept;
  LogFile& operator=(LogFile&&) = delete;
  LogFile(const LogFile&) = delete;

  const std::string& path() const { return path_; }
  // Bytes, as the file was when it was opened: a log that is still being written is read up to there.
  uint64_t size() const { return size_; }
  // Reads up to `bytes` bytes; fewer only at the end of the file. Throws LogError when the read itself fails.
  size_t read_at(uint64_t offset, void* buffer, size_t bytes) const;

 private:
  std::string path_;
  int descriptor_;
  uint64_t size_ = 0;
};

}  // namespace quarl::report
