// SPDX-License-Identifier: Apache-2.0
// The events of a run: told on standard error as they come.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "events/events_file.h"
#include "story/telling/teller.h"

namespace quarl {

class RunEvents {
 public:
  // Follows what is appended to the file from now on. `raw`: nothing is told, it is only counted. A Refusal when the
  // file cannot be read.
  RunEvents(const std::string& path, const std::string& sysroot, bool raw);

  // Tells what has come. True when anything has.
  bool read();
  // Readable for poll() when there is something to read.
  int watch() const { return file_.watch(); }

  // A thread that was stopped has been released, or is left for whoever releases it: completes its story. False
  // when there is none that waits for that.
  bool thread_ended(pid_t pid, pid_t tid);
  bool thread_kept(pid_t pid, pid_t tid);
  // Tells stories whose threads do not end.
  void tell_waiting(std::chrono::milliseconds age) { teller_.settle_older_than(age); }

  const std::string& path() const { return file_.path(); }
  const story::Teller& teller() const { return teller_; }
  const story::Processes& processes() const { return teller_.processes(); }
  // Lines that made no sense; "" when all did.
  std::string complaint() const { return file_.complaint(); }

 private:
  events::EventsFile file_;
  story::Teller teller_;
};

}  // namespace quarl
