// SPDX-License-Identifier: Apache-2.0
#include "report/verbs/answer.h"

#include <charconv>
#include <filesystem>

#include "report/formats/text_page.h"
#include "report/reading/log_error.h"

namespace quarl::report {
namespace {

struct Argument {
  std::string path;
  std::optional<uint32_t> number;
};

Argument parse_argument(const std::string& text) {
  size_t at = text.rfind('@');
  if (at == std::string::npos || std::filesystem::exists(text)) return {text, std::nullopt};
  uint32_t number = 0;
  const char* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data() + at + 1, end, number);
  if (error != std::errc() || stop != end) return {text, std::nullopt};
  return {text.substr(0, at), number};
}

const Snapshot& choose(const Log& log, std::optional<uint32_t> number) {
  if (!number) return log.snapshots().back();
  if (const Snapshot* found = log.numbered(*number)) return *found;
  throw LogError(
      log.file().path(), 0,
      fmt::format("there is no snapshot {}; the log holds {}, numbered {} to {}", *number, log.snapshots().size(),
                  log.snapshots().front().header.snapshot_number, log.snapshots().back().header.snapshot_number));
}

}  // namespace

const char* name_of(View view) {
  if (view == View::kPeak) return "peak";
  return view == View::kAllocated ? "allocated" : "held";
}

void require_times(const Log& log, const Snapshot& snapshot, const char* so) {
  RecordPass pass(log, snapshot, {});
  if (pass.first_time() != 0 || pass.records() == 0) return;
  throw std::runtime_error(
      fmt::format("{}: its records have no times (QUARL_HEAD_TIME=2 has them written); {}", log.file().path(), so));
}

Answer::Answer(const Options& options)
    : options_(options), output_(options.output, options.color, options.names), desk_(options.desk) {
  if (!options.suppressions.empty()) suppressions_.load(options.suppressions);
  if (options.default_suppressions) suppressions_.add_defaults();
}

Subject Answer::open(const std::string& argument, Wanted wanted) {
  auto [path, number] = parse_argument(argument);
  std::shared_ptr<const Log>& log = logs_[path];
  if (!log) log = std::make_shared<const Log>(path, options_.kind);
  const Snapshot& snapshot = choose(*log, number);
  if (options_.selection.asks_for_age()) require_times(*log, snapshot, "nothing in it has an age");
  return Subject(log, snapshot, desk_, suppressions_, options_.selection, wanted);
}

void Answer::note_left_out(const LeftOut& left_out) const {
  const bool told = format() == Format::kText || format() == Format::kJson || format() == Format::kHtml;
  if (told || left_out.by_default.count == 0) return;
  fmt::print(stderr, "quarl report: left out: {}\n", kept_text(left_out.by_default));
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

int Answer::judge(const Usage& unfreed, const std::vector<std::string>& losses) const {
  if (!options_.fail_on_leak) return 0;
  if (unfreed.bytes > *options_.fail_on_leak) {
    fmt::print(stderr, "quarl report: {} bytes in {} blocks are unfreed, {} are allowed\n", unfreed.bytes,
               unfreed.count, *options_.fail_on_leak);
    return kExitLeaks;
  }
  if (losses.empty()) return 0;
  fmt::print(stderr, "quarl report: --fail-on-leak cannot be answered, because the log is not whole\n");
  return kExitNotWhole;
}

}  // namespace quarl::report
