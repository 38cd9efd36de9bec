// SPDX-License-Identifier: Apache-2.0
// What the verbs have in common: the logs, the desk's files, the output, and the exit status.
#pragma once

#include <map>
#include <memory>

#include "report/analysis/subject.h"
#include "report/verbs/options.h"

namespace quarl::report {

inline constexpr int kExitLeaks = 3;     // more unfreed than --fail-on-leak allows
inline constexpr int kExitNotWhole = 4;  // not more in what is there of a log that is not whole

class Answer {
 public:
  explicit Answer(const Options& options);

  const Options& options() const { return options_; }
  Output& output() { return output_; }
  Desk& desk() { return desk_; }
  Format format() const { return options_.format; }
  // How many sites or changes to give: all but in text, unless --top says otherwise.
  size_t top() const { return options_.top_given || format() == Format::kText ? options_.top : SIZE_MAX; }

  // `argument` is a path, or a path with "@N" behind it for the snapshot of number N; without it the last snapshot is
  // meant. Throws LogError when the log cannot be read or has no such snapshot. Subjects of one file share its log.
  Subject open(const std::string& argument, Wanted wanted = {});

  // In formats that have no place for it, tells on standard error what the default rules leave out.
  void note_left_out(const LeftOut& left_out) const;
  // Writes out the answer, and the notes and warnings to standard error. Returns the exit status.
  int finish(Subject& subject);
  int finish(const std::vector<std::string>& notes);
  // The status for what is unfreed, on top of finish(). `losses` keep the log from being whole.
  int judge(const Usage& unfreed, const std::vector<std::string>& losses) const;

 private:
  const Options& options_;
  Output output_;
  Desk desk_;
  Suppressions suppressions_;
  std::map<std::string, std::shared_ptr<const Log>> logs_;  // by path
};

// Throws when there are records and none of them has a time; `so` is what follows from that.
void require_times(const Log& log, const Snapshot& snapshot, const char* so);

}  // namespace quarl::report
