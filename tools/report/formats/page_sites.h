// SPDX-License-Identifier: Apache-2.0
// The sites of a page, each once, with their traces as a tree: what thousands of them have in common is written once.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <unordered_map>

#include "report/formats/table.h"
#include "report/symbols/frame.h"

namespace quarl::report {

class PageSites {
 public:
  // The trace as a place in the tree: the innermost call. Traces that read the same are the same, as sites are
  // everywhere in a report.
  size_t stack_of(const Frames& frames);
  // The index of its site; nothing for one more than the page takes.
  std::optional<size_t> site_of(size_t stack);
  // Adds the members `strings`, `frames`, `stacks` and `sites`, all in columns:
  //   frames: strings of the function, of its short form, of what a reader's line has behind it, of file and module
  //   stacks: the caller's place, 0 for none, and the frame; the place 0 is nobody's
  //   sites: their places
  void write(Json& document) &&;

 private:
  size_t string_of(const std::string& text);
  size_t frame_of(const Frame& frame);
  size_t add_frame(const std::string& text, const std::string& name, const Frame& frame);
  size_t below(size_t stack, size_t frame);

  std::unordered_map<std::string, size_t> strings_;
  std::unordered_map<std::string, size_t> frames_;  // by what describe() says
  std::map<std::pair<size_t, size_t>, size_t> stacks_;
  std::unordered_map<size_t, size_t> sites_;  // by stack
  Json string_column_ = Json::array();
  Json frame_columns_ = Json::array(
      {Json::array(), Json::array(), Json::array(), Json::array(), Json::array(), Json::array(), Json::array()});
  Json callers_ = Json::array({0});
  Json stack_frames_ = Json::array({0});
  Json site_column_ = Json::array();
};

}  // namespace quarl::report
