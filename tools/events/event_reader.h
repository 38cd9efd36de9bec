// SPDX-License-Identifier: Apache-2.0
// Bytes of an events file, cut anywhere, turned into events.
#pragma once

#include <functional>

#include "events/event.h"

namespace quarl::events {

class EventReader {
 public:
  using Take = std::function<void(const Event&)>;

  // Takes each event whose line is whole. A last line without its end waits for the rest of it.
  void feed(std::string_view bytes, const Take& take);

  // Lines that are no event, and the number of the first one, from 1; 0 when there is none.
  uint64_t bad_lines() const { return bad_lines_; }
  uint64_t first_bad_line() const { return first_bad_line_; }
  // The file ends within a line.
  bool cut() const { return overlong_ || !partial_.empty(); }

 private:
  void take_line(std::string_view line, const Take& take);

  std::string partial_;    // of the line that has no end yet
  bool overlong_ = false;  // it is longer than any event: the rest of it is skipped
  uint64_t lines_ = 0;
  uint64_t bad_lines_ = 0;
  uint64_t first_bad_line_ = 0;
};

}  // namespace quarl::events
