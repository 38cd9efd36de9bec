// SPDX-License-Identifier: Apache-2.0
// One line of an events file (docs/events.md).
#pragma once

#include <sys/types.h>

#include <memory>

#include "events/fields.h"

namespace quarl::events {

class Event {
 public:
  // Nothing when the line is no JSON object with a kind and a process, or is of another version of the interface.
  static std::optional<Event> parse(std::string_view line);

  const std::string& kind() const { return kind_; }
  pid_t pid() const { return pid_; }
  pid_t tid() const { return tid_; }
  uint64_t dropped() const { return fields().number("dropped").value_or(0); }
  // What it says besides; not longer than the event lives.
  Fields fields() const { return Fields(*object_); }

 private:
  std::shared_ptr<const Json> object_;
  std::string kind_;
  pid_t pid_ = 0;
  pid_t tid_ = 0;
};

}  // namespace quarl::events
