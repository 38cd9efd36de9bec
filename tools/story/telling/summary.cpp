#include "story/telling/summary.h"

#include <fmt/format.h>

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

// A program that is interrupted holds what it was working with.
std::string kept_text(const Process* process) {
  const bool ended = process != nullptr && is_known(process->ending);
  if (!ended && (process == nullptr || !is_known(process->snapshot))) return "what was kept is not known";
  const Ending& held = ended ? *process->ending : *process->snapshot;
  std::string text = *held.blocks == 0 ? "nothing" : held_text(*held.blocks, *held.bytes);
  if (!ended) return text + " held when it was last looked at";
  if (held.signal != 0) return text + " held when a signal ended it";
  return *held.blocks == 0 ? "everything was given back" : text + " never given back";
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

bool is_of(const std::string& path, pid_t pid, const char* ending) {
  return path.ends_with(fmt::format("_{}_{}", pid, ending));
}

}  // namespace

std::string summary(const Teller& teller, const Process* main) {
  return faults_text(teller) + "; " + kept_text(main) + others_text(teller.processes(), main);
}

std::string next_question(const std::vector<std::string>& logs, pid_t main) {
  for (const char* ending : {"quarl.log", "quarl_autosnap.log"}) {
    for (const std::string& log : logs) {
      if (is_of(log, main, ending)) return "report leaks " + log;
    }
  }
  for (const std::string& log : logs) {
    if (is_of(log, main, "quarlAll.log")) return "report " + log;
  }
  return logs.empty() ? "" : "report leaks " + logs.front();
}

}  // namespace quarl::story
