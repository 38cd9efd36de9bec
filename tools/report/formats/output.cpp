// SPDX-License-Identifier: Apache-2.0
#include "report/formats/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace quarl::report {
namespace {

size_t terminal_width(FILE* file) {
  winsize size = {};
  if (ioctl(fileno(file), TIOCGWINSZ, &size) == 0 && size.ws_col != 0) return size.ws_col;
  return 80;
}

bool wants_color(ColorChoice choice, bool terminal) {
  if (choice != ColorChoice::kAuto) return choice == ColorChoice::kAlways;
  return terminal && getenv("NO_COLOR") == nullptr;
}

}  // namespace

std::string without_controls(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char byte) { return byte < ' ' || byte == 0x7f; }, '?');
  return text;
}

Output::Output(const std::string& path, ColorChoice color, Names names)
    : path_(path), file_(path.empty() ? stdout : fopen(path.c_str(), "we")), names_(names) {
  if (file_ == nullptr) throw std::runtime_error(fmt::format("{}: cannot be written: {}", path, strerror(errno)));
  terminal_ = isatty(fileno(file_)) == 1;
  color_ = wants_color(color, terminal_);
  width_ = terminal_ ? terminal_width(file_) : SIZE_MAX;
}

Output::~Output() {
  if (file_ != nullptr && file_ != stdout) fclose(file_);
}

std::string Output::styled(const std::string& text, fmt::text_style style) const {
  return color_ ? fmt::format(style, "{}", text) : text;
}

void Output::finish() {
  if (fflush(file_) == 0 && ferror(file_) == 0) return;
  throw std::runtime_error(
      fmt::format("{}: not all could be written: {}", path_.empty() ? "standard output" : path_, strerror(errno)));
}

}  // namespace quarl::report
