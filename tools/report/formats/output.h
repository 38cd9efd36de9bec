// SPDX-License-Identifier: Apache-2.0
// Where an answer goes: standard output or a file, with what is known of the terminal.
#pragma once

#include <fmt/color.h>
#include <fmt/format.h>

#include <cstdio>
#include <string>

#include "report/symbols/frame.h"

namespace quarl::report {

enum class ColorChoice { kAuto, kAlways, kNever };

// With "?" for control characters: names come from logs and files, and could steer a terminal.
std::string without_controls(std::string text);

class Output {
 public:
  // Writes to the file `path`, or to standard output when it is empty. Throws std::runtime_error when it cannot be
  // made.
  Output(const std::string& path, ColorChoice color, Names names);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  template <typename... Args>
  void print(fmt::format_string<Args...> format, Args&&... args) {
    fmt::vprint(file_, format, fmt::make_format_args(args...));
  }
  void write(const std::string& bytes) { fwrite(bytes.data(), 1, bytes.size(), file_); }
  // `text` in that style where colours are on.
  std::string styled(const std::string& text, fmt::text_style style) const;
  std::string bold(const std::string& text) const { return styled(text, fmt::emphasis::bold); }

  Names names() const { return names_; }  // how frames are named in text
  bool terminal() const { return terminal_; }
  // Columns of the terminal; without one as many as any line needs.
  size_t width() const { return width_; }
  // Writes out what is buffered. Throws std::runtime_error when anything could not be written.
  void finish();

 private:
  std::string path_;
  FILE* file_;
  bool terminal_;
  bool color_;
  Names names_;
  size_t width_;
};

}  // namespace quarl::report
