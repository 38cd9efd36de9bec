// SPDX-License-Identifier: Apache-2.0
// Frames as a reader wants them: a function, and where it is.
#pragma once

#include "report/symbols/desk.h"
#include "story/processes/process.h"

namespace quarl::story {

struct Place {
  std::string name;   // function, or what takes its stead where it is unknown
  std::string where;  // "file.c:12", "libz.so.1+0x1234", or nothing
};
using Places = std::vector<Place>;  // innermost first

class PlaceFinder {
 public:
  explicit PlaceFinder(report::DeskOptions options) : desk_(std::move(options)) {}

  // Of a trace of return addresses, inlined calls first. The frames of the checker and of the allocation entries at its
  // front are left out unless nothing else is there; so is what called main() or started the thread.
  Places calls(const Process& process, const Trace& trace);
  // Of an instruction that was interrupted there, and of the calls that led to it.
  Places crash(const Process& process, const std::optional<TraceFrame>& instruction, const Trace& trace);

  // What is to be told of files that were not used, each sentence once.
  std::vector<std::string> take_warnings();

 private:
  report::Frames resolve(const Process& process, const TraceFrame& frame, bool returned_to);
  report::Frames resolve(const Process& process, const Trace& trace);

  report::Desk desk_;
  size_t told_ = 0;  // of the desk's warnings
};

}  // namespace quarl::story
