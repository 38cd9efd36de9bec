// SPDX-License-Identifier: Apache-2.0
// Tells the events of an events file as they come: one story for each fault.
#pragma once

#include <chrono>
#include <functional>
#include <list>

#include "story/processes/processes.h"
#include "story/telling/page.h"

namespace quarl::story {

// What became of a thread that was stopped.
enum class Fate { kEnded, kStopped, kGone };

class Teller {
 public:
  // Takes texts of whole lines.
  using Say = std::function<void(const std::string&)>;

  Teller(report::DeskOptions desk, bool colours, Say say)
      : places_(std::move(desk)), colours_(colours), say_(std::move(say)) {}

  void take(const Event& event);

  // Stories of stopped threads wait for what becomes of the thread. Which is known of one, or is not to be waited for
  // any longer: of one thread, or of all that have waited at least so long. False when the thread has none.
  bool settle(pid_t pid, pid_t tid, Fate fate, const std::string& remark = "");
  void settle_older_than(std::chrono::milliseconds age);

  const Processes& processes() const { return processes_; }
  int faults() const { return faults_; }    // stories of faults
  int reports() const { return reports_; }  // of the same faults, by all checks
  int crashes() const { return crashes_; }
  int troubles() const { return troubles_; }

 private:
  struct Waiting {
    pid_t pid, tid;
    Page page;
    std::chrono::steady_clock::time_point since;
  };
  void tell(const Page& page);
  void tell_fault(Process& process, const Event& event);
  void tell_snapshot(const Process& process, const Event& event);
  void tell_kind(Process& process, const Event& event);
  void settle_process(pid_t pid);

  Processes processes_;
  PlaceFinder places_;
  bool colours_;
  Say say_;
  std::list<Waiting> waiting_;
  int faults_ = 0, reports_ = 0, crashes_ = 0, troubles_ = 0;
};

}  // namespace quarl::story
