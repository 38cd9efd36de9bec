// SPDX-License-Identifier: Apache-2.0
#include "items/config_reader.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "config/file_lines.h"
#include "refusal.h"

namespace quarl {
namespace {

// Walks over the lines of the file, to find on which one an offset lies.
class LineCounter {
 public:
  explicit LineCounter(std::string_view bytes) : bytes_(bytes) {}

  // Offsets only grow from call to call.
  void go_to(size_t offset) {
    while (end() != std::string_view::npos && end() < offset) next();
  }
  int number() const { return number_; }
  std::string_view line() const { return bytes_.substr(start_, end() - start_); }
  bool ended() const { return end() != std::string_view::npos; }

 private:
  size_t end() const { return bytes_.find_first_of("\r\n", start_); }
  void next() {
    size_t end_of_line = end();
    start_ = end_of_line + (bytes_.substr(end_of_line, 2) == "\r\n" ? 2 : 1);
    ++number_;
  }

  std::string_view bytes_;
  size_t start_ = 0;
  int number_ = 1;
};

}  // namespace

bool ConfigLine::cut() const {
  return length > kMaxLine;
}

std::vector<ConfigLine> read_config(std::string_view bytes) {
  std::vector<ConfigLine> lines;
  LineCounter counter(bytes);
  auto take = [&](const char* text, size_t offset, bool ended) {
    counter.go_to(offset);
    lines.push_back({counter.number(), text, static_cast<int>(counter.line().size()), ended});
  };
  auto read_at = [bytes](int64_t offset, char* buffer) -> long {
    if (offset >= static_cast<int64_t>(bytes.size())) return 0;
    return static_cast<long>(bytes.copy(buffer, kReadSize, static_cast<size_t>(offset)));
  };
  for_each_line(read_at, [&](const char* text, int64_t offset) { take(text, static_cast<size_t>(offset), true); });
  counter.go_to(bytes.size());
  if (!counter.ended() && !counter.line().empty()) take(std::string(counter.line()).c_str(), bytes.size(), false);
  return lines;
}

std::string slurp(const std::string& path) {
  if (std::filesystem::is_directory(path)) refuse("{} is a directory; name a configuration file", path);
  std::ifstream file(path, std::ios::binary);
  if (!file) refuse("cannot read {}: {}", path, std::strerror(errno));
  std::ostringstream bytes;
  bytes << file.rdbuf();
  return bytes.str();
}

}  // namespace quarl
