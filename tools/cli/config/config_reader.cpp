#include "config/config_reader.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "quarl/config/item_table.h"
#include "refusal.h"

namespace quarl {
namespace {

bool is_comment(const std::string& text) {
  size_t first = text.find_first_not_of(" \t");
  return first != std::string::npos && text[first] == '#';
}

ConfigLine make_line(int number, std::string_view whole) {
  std::string_view taken = whole.size() > kMaxLine ? whole.substr(whole.size() - kMaxLine) : whole;
  ConfigLine line{number, ConfigLine::Fate::kItem, std::string(taken.substr(0, taken.find('\0'))),
                  static_cast<int>(whole.size())};
  if (is_comment(line.text)) line.fate = ConfigLine::Fate::kComment;
  return line;
}

}  // namespace

bool ConfigLine::cut() const {
  return length > kMaxLine;
}

std::vector<ConfigLine> read_config(std::string_view bytes) {
  std::vector<ConfigLine> lines;
  int number = 1;
  for (size_t start = 0; start < bytes.size(); ++number) {
    size_t end = bytes.find_first_of("\r\n", start);
    if (end == std::string_view::npos) {
      std::string_view rest = bytes.substr(start);
      lines.push_back({number, ConfigLine::Fate::kNoEnd, std::string(rest), static_cast<int>(rest.size())});
      break;
    }
    if (end > start) lines.push_back(make_line(number, bytes.substr(start, end - start)));
    bool pair = bytes.substr(end, 2) == "\r\n";
    start = end + (pair ? 2 : 1);
  }
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
