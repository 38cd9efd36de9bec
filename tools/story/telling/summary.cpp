// SPDX-License-Identifier: Apache-2.0
#include "story/telling/summary.h"

#include <fmt/format.h>

#include <algorithm>

namespace quarl::story {
namespace {

std::string faults_text(const Teller& teller) {
  auto number = [](int count, const char* one, const char* many) {
    return fmt::format("{} {}", count, count == 1 ? one : many);
  };
  std::string text = teller.faults() == 0 ? "no faults" : number(teller.faults(), "fault", "faults");
  if (teller.reports() > teller.faults()) text += fmt::format(", reported {} times", teller.reports());
  if (teller.crashes() > 0) text += "; " + number(teller.crashes(), "crash", "crashes");
  return text;
}

std::string held_text(uint64_t blocks, uint64_t bytes) {
  return fmt::format("{} in {}", counted(bytes, "byte"), counted(blocks, "block"));
}

bool is_known(const std::optional<Ending>& held) {
  return held && held->blocks && held->bytes;
}

// What the report leaves out for good reason.
std::string left_out_text(const report::LeftOut& left_out) {
  const report::Usage& kept = left_out.by_default;
  return kept.count == 0 ? "" : "; the C and C++ libraries keep " + held_text(kept.count, kept.bytes);
}

// A program that is interrupted holds what it was working with.
std::string kept_text(const Process* process, const std::optional<report::Unfreed>& unfreed) {
  const bool ended = process != nullptr && is_known(process->ending);
  if (!ended && (process == nullptr || !is_known(process->snapshot))) return "what was kept is not known";
  const Ending& held = ended ? *process->ending : *process->snapshot;
  const report::Unfreed told = unfreed.value_or(report::Unfreed{{*held.bytes, *held.blocks}, {}});
  const std::string text = told.usage.count == 0 ? "nothing" : held_text(told.usage.count, told.usage.bytes);
  const std::string left_out = left_out_text(told.left_out);
  if (!ended) return text + " held when it was last looked at" + left_out;
  if (held.signal != 0) return text + " held when a signal ended it" + left_out;
  return (told.usage.count == 0 ? "everything was given back" : text + " never given back") + left_out;
}

std::string others_text(const Processes& processes, const Process* main) {
  uint64_t count = 0, blocks = 0, bytes = 0;
  for (const Process& process : processes.all()) {
    if (&process == main || !process.ending || process.ending->blocks.value_or(0) == 0) continue;
    ++count;
    blocks += *process.ending->blocks;
    bytes += process.ending->bytes.value_or(0);
  }
  if (count == 0) return "";
  return fmt::format("; {} in {} other {}", held_text(blocks, bytes), count, count == 1 ? "process" : "processes");
}

// The path of that process's log; empty when it has none.
std::string log_of(const std::vector<std::string>& logs, pid_t pid, const char* ending) {
  const std::string name = fmt::format("_{}_{}", pid, ending);
  auto found = std::find_if(logs.begin(), logs.end(), [&](const std::string& log) { return log.ends_with(name); });
  return found == logs.end() ? "" : *found;
}

}  // namespace

std::string summary(const Teller& teller, const Process* main, const std::optional<report::Unfreed>& unfreed) {
  return faults_text(teller) + "; " + kept_text(main, unfreed) + others_text(teller.processes(), main);
}

std::string leak_log(const std::vector<std::string>& logs, pid_t main) {
  const std::string snapshot = log_of(logs, main, "quarl.log");
  return snapshot.empty() ? log_of(logs, main, "quarlAll.log") : snapshot;
}

std::string next_question(const std::vector<std::string>& logs, pid_t main) {
  for (const char* ending : {"quarl.log", "quarl_autosnap.log"}) {
    if (std::string log = log_of(logs, main, ending); !log.empty()) return "report leaks " + log;
  }
  if (std::string log = log_of(logs, main, "quarlAll.log"); !log.empty()) return "report " + log;
  return logs.empty() ? "" : "report leaks " + logs.front();
}

}  // namespace quarl::story
