// SPDX-License-Identifier: Apache-2.0
// `at`: what was live at a moment of the run.
#include <algorithm>
#include <charconv>
#include <ctime>

#include <CLI/CLI.hpp>

#include "report/formats/json_document.h"
#include "report/verbs/site_answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

std::optional<uint32_t> number_in(std::string_view text) {
  uint32_t value = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// "2026-01-31 12:00:00", the "T" of ISO 8601 for the blank, "UTC" or "Z" behind it or nothing: always UTC.
std::optional<uint32_t> date_in(const std::string& text) {
  tm parts = {};
  const char* end =
      strptime(text.c_str(), text.find('T') == std::string::npos ? "%Y-%m-%d %H:%M:%S" : "%Y-%m-%dT%H:%M:%S", &parts);
  if (end == nullptr) return std::nullopt;
  const std::string_view zone = end;
  if (!zone.empty() && zone != " UTC" && zone != "Z") return std::nullopt;
  return static_cast<uint32_t>(timegm(&parts));
}

uint32_t start_of(Subject& subject) {
  RecordPass pass(subject.log(), subject.snapshot(), {});
  return pass.first_time();
}

Moment moment_in(const std::string& text, Subject& subject) {
  if (auto number = number_in(text)) return {number, std::nullopt};
  if (text.starts_with('@')) {
    if (auto time = number_in(std::string_view(text).substr(1))) return {std::nullopt, time};
  }
  if (text.starts_with('+')) {
    if (auto seconds = number_in(std::string_view(text).substr(1))) {
      const uint32_t start = start_of(subject);
      return {std::nullopt, start + std::min(*seconds, UINT32_MAX - start)};
    }
  }
  if (auto time = date_in(text)) return {std::nullopt, time};
  throw CLI::ValidationError("MOMENT", "\"" + text +
                                           "\" is none: the number of a record, +SECONDS since the first, @SECONDS "
                                           "since the epoch, or \"YYYY-MM-DD HH:MM:SS\" (UTC)");
}

std::string in_words(const Moment& moment) {
  return moment.number ? fmt::format("record {}", *moment.number) : clock_time(*moment.time);
}

// Of a chain the last snapshot until then.
std::string argument_of(Answer& answer, const std::string& file, const Moment& moment) {
  const Log& log = answer.open(file).log();
  const Snapshot* found = nullptr;
  for (const Snapshot& snapshot : log.snapshots()) {
    if (moment.time && snapshot.header.time <= *moment.time && snapshot.header.time != 0) found = &snapshot;
  }
  if (found != nullptr) return fmt::format("{}@{}", file, found->header.snapshot_number);
  throw std::runtime_error(fmt::format("{}: there is no snapshot until {}", file, in_words(moment)));
}

}  // namespace

int report_moment(const Options& options) {
  require_traces(options);
  Answer answer(options);
  Subject whole = answer.open(options.files.front());
  const Moment moment = moment_in(options.moment, whole);
  const bool chain = whole.log().kind() == LogKind::kSnapshotChain && moment.time;
  if (!chain) require_records(whole, "what was live at a moment");
  if (!chain && moment.time) require_times(whole.log(), whole.snapshot(), "ask for a number");
  Subject subject = answer.open(chain ? argument_of(answer, options.files.front(), moment) : options.files.front());
  if (!chain) subject.pass().read_until(moment);
  SiteTable sites = subject.table(options.grouping, options.order, [&](SiteTable& table) {
    subject.for_each_held([&](const LiveEntry& entry) { table.add(entry); });
  });
  const uint32_t now = subject.pass().now();
  Json about = {
      {"at", {{"sequence", moment.number ? Json(*moment.number) : Json()}, {"time", now == 0 ? Json() : Json(now)}}}};
  write_site_answer(answer, subject, sites, {"at", "live at " + in_words(moment), "live", std::move(about), {}});
  return answer.finish(subject.log().notes());
}

}  // namespace quarl::report
