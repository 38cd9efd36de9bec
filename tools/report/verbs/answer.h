// What the verbs have in common: the logs, the desk's files, the output, and the exit status.
#pragma once

#include "report/analysis/subject.h"
#include "report/verbs/options.h"

namespace quarl::report {

inline constexpr int kExitLeaks = 3;  // more unfreed than --fail-on-leak allows

class Answer {
 public:
  explicit Answer(const Options& options);

  const Options& options() const { return options_; }
  Output& output() { return output_; }
  Desk& desk() { return desk_; }
  const Suppressions& suppressions() const { return suppressions_; }
  Format format() const { return options_.format; }
  // How many sites or changes to give: all but in text, unless --top says otherwise.
  size_t top() const { return options_.top_given || format() == Format::kText ? options_.top : SIZE_MAX; }

  Subject open(const std::string& file) { return Subject(file, options_.kind, desk_); }
  SiteTable sites(Subject& subject, Grouping grouping) {
    return SiteTable(subject.ledger(), subject.symbolizer(), grouping, suppressions_);
  }

  // Writes out the answer, and the notes and warnings to standard error. Returns the exit status.
  int finish(Subject& subject);
  int finish(const std::vector<std::string>& notes);
  // The status for what is unfreed, on top of finish().
  int judge(const Usage& unfreed) const;

 private:
  const Options& options_;
  Output output_;
  Desk desk_;
  Suppressions suppressions_;
};

}  // namespace quarl::report
