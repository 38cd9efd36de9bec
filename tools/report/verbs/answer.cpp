#include "report/verbs/answer.h"

namespace quarl::report {

Answer::Answer(const Options& options)
    : options_(options), output_(options.output, options.color), desk_(options.desk) {
  if (!options.suppressions.empty()) suppressions_.load(options.suppressions);
}

int Answer::finish(Subject& subject) {
  return finish(subject.notes());
}

int Answer::finish(const std::vector<std::string>& notes) {
  output_.finish();
  for (const std::string& note : notes) fmt::print(stderr, "quarl report: {}\n", note);
  for (const std::string& warning : desk_.warnings()) fmt::print(stderr, "quarl report: warning: {}\n", warning);
  return 0;
}

int Answer::judge(const Usage& unfreed) const {
  if (!options_.fail_on_leak || unfreed.bytes <= *options_.fail_on_leak) return 0;
  fmt::print(stderr, "quarl report: {} bytes in {} blocks are unfreed, {} are allowed\n", unfreed.bytes, unfreed.count,
             *options_.fail_on_leak);
  return kExitLeaks;
}

}  // namespace quarl::report
