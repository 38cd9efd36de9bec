// SPDX-License-Identifier: Apache-2.0
// A story's text: a head, and below it lines with labels, some with calls below them.
#pragma once

#include "story/telling/places.h"

namespace quarl::story {

// With "?" for control characters, which could steer a terminal, and for what is no UTF-8.
std::string printable(std::string_view text);

// "1 byte", "12 bytes".
std::string counted(uint64_t number, const std::string& noun);

class Page {
 public:
  // `who` and `head` are told as "quarl: WHO: HEAD".
  Page(std::string who, std::string head) : who_(std::move(who)), head_(std::move(head)) {}

  void line(std::string label, std::string text, Places calls = {});
  void remark(std::string text) { line("", std::move(text)); }

  // With line ends; in colours when told so.
  std::string text(bool colours) const;

 private:
  struct Line {
    std::string label, text;
    Places calls;
  };
  size_t name_width() const;

  std::string who_, head_;
  std::vector<Line> lines_;
};

}  // namespace quarl::story
