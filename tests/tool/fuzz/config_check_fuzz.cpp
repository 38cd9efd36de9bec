// SPDX-License-Identifier: Apache-2.0
// Any bytes as a configuration file: the check never fails, and it takes the same lines out of the file as a loader
// that reads 128 bytes at a time from where the next line starts.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "items/config_check.h"

namespace {

constexpr size_t kWindow = 128;

// Reads as the library does, one window after the other.
std::vector<std::string> lines_by_windows(std::string_view bytes) {
  std::vector<std::string> lines;
  for (size_t offset = 0; offset < bytes.size();) {
    std::string_view window = bytes.substr(offset, kWindow);
    size_t end = window.find_first_of("\r\n");
    size_t length = end == std::string_view::npos ? 0 : end;
    offset += length + 1;
    if (length == 0) continue;
    std::string line(window.substr(0, std::min(length, window.find('\0'))));
    size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] != '#') lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> lines_by_reader(std::string_view bytes) {
  std::vector<std::string> lines;
  for (const quarl::ConfigLine& line : quarl::read_config(bytes)) {
    if (line.ended) lines.push_back(line.text);
  }
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (lines_by_windows(bytes) != lines_by_reader(bytes)) std::abort();
  for (const quarl::Finding& finding : quarl::ConfigReport(bytes).findings) {
    if (finding.line < 1 || finding.text.empty()) std::abort();
  }
  return 0;
}
