// SPDX-License-Identifier: Apache-2.0
#include "process/run_end.h"

#include <signal.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "items/signal_text.h"
#include "message.h"
#include "process/proc.h"
#include "story/telling/pages.h"
#include "story/telling/summary.h"

namespace quarl {
namespace {

namespace fs = std::filesystem;
using story::printable;

void tell_survivors(const std::set<pid_t>& survivors, const RunEvents& events) {
  for (pid_t pid : survivors) {
    say("{}[{}] runs on; what becomes of it is told by: quarl story {}", printable(thread_name(pid, pid)), pid,
        printable(events.path()));
  }
}

bool are_followed(const RunEvents& events) {
  return events.path() != "/dev/null";
}

// Nothing more can be appended to the file.
bool is_stuck(const std::string& path) {
  struct statvfs disk {};
  return access(path.c_str(), W_OK) != 0 || (statvfs(path.c_str(), &disk) == 0 && disk.f_bavail == 0);
}

// The checker was there, or may have been, and could not tell of it.
bool are_lost(const TargetRun& run, const RunEvents& events) {
  if (!are_followed(events) || events.processes().find(run.pid()) != nullptr) return false;
  return run.stopped() > 0 || is_stuck(events.path());
}

// QUARL_ONLY leaves programs out on purpose.
bool was_left_out(const TargetRun& run, const RunEvents& events) {
  const bool heard_of = events.processes().find(run.pid()) != nullptr;
  return are_followed(events) && !heard_of && std::getenv("QUARL_ONLY") == nullptr;
}

void tell_left_out(const TargetRun& run, const RunEvents& events) {
  if (are_lost(run, events)) {
    return say("nothing of process {} came into {}: the disk is full, or its user may not write there", run.pid(),
               printable(events.path()));
  }
  if (!was_left_out(run, events)) return;
  say("libquarl.so was not loaded into process {}: nothing of it was checked. The loader leaves it out where a program "
      "changes its user or has file capabilities; run a copy of the program",
      run.pid());
}

// Checked, and gone without its last words.
bool ended_without_a_word(const TargetRun& run, const RunEvents& events) {
  const story::Process* main = events.processes().find(run.pid());
  return main != nullptr && main->loaded && !main->ending;
}

// Of a signal that the program should have told of.
std::string why_no_story(int signal) {
  if (signal == SIGKILL) return ", which no program sees come: no logs were written at the end";
  const char* wanted = std::getenv("QUARL_END_SIGNALS");
  if (wanted != nullptr && std::string_view(wanted) != "1") return "; QUARL_END_SIGNALS=1 has it tell its story";
  if (!story::is_crash(signal)) return ", without a story";
  return " without a story: the signal was blocked or is not one that the checker takes, or the stack of a thread that "
         "never allocated overflowed; a core file or gdb tells more";
}

// The shell tells nothing of it: for the shell it is the runner that ends.
void tell_signal(const TargetRun& run, const RunEvents& events) {
  const int signal = run.ending_signal();
  if (signal == 0 || events.teller().crashes() > 0) return;
  say("the program was ended by {}{}", signal_name(signal),
      ended_without_a_word(run, events) ? why_no_story(signal) : "");
}

void tell_way_past_exit(const TargetRun& run, const RunEvents& events) {
  if (run.ending_signal() != 0 || !ended_without_a_word(run, events)) return;
  say("the program left past the checker's end, by _exit or by exec of a program that is not checked: its logs hold "
      "what was written before. While it runs, \"quarl dump PID\" writes what it holds");
}

// Logs in the folder, and those that a program wrote elsewhere.
std::vector<std::string> all_logs(const RunEvents& events, std::vector<std::string> logs) {
  std::error_code error;
  for (const story::Process& process : events.processes().all()) {
    for (const std::string& log : process.logs) {
      bool known = std::find(logs.begin(), logs.end(), log) != logs.end();
      if (!known && log.starts_with('/') && fs::exists(log, error)) logs.push_back(log);
    }
  }
  return logs;
}

std::string whereabouts(const RunEvents& events, const LogFolder& folder, const std::vector<std::string>& logs,
                        pid_t main) {
  std::string text;
  if (logs.size() > 1) text += fmt::format("; {} logs in {}", logs.size(), folder.path());
  std::string question = story::next_question(logs, main);
  if (question.empty() && events.teller().faults() > 0) question = "story " + events.path();
  return question.empty() ? text : text + "; more: quarl " + question;
}

// As the report tells it that the last line points to. Of a process that runs on the log may still be written.
std::optional<report::Unfreed> unfreed_of(const TargetRun& run, const std::vector<std::string>& logs) {
  const std::string log = story::leak_log(logs, run.pid());
  return log.empty() ? std::nullopt : report::unfreed_in(log);
}

// "no faults" is said only by who would have heard of one.
std::string summary(const TargetRun& run, const RunEvents& events, const std::vector<std::string>& logs) {
  if (are_followed(events) && !are_lost(run, events))
    return story::summary(events.teller(), events.processes().find(run.pid()), unfreed_of(run, logs));
  std::string text = "what the checker found is not known here";
  const auto stopped = static_cast<uint64_t>(run.stopped());
  return stopped == 0 ? text : fmt::format("{} stopped; {}", story::counted(stopped, "thread"), text);
}

bool found_anything(const RunEvents& events) {
  const story::Teller& teller = events.teller();
  return teller.faults() + teller.crashes() + teller.troubles() > 0;
}

}  // namespace

RunFiles::~RunFiles() {
  for (const std::string& path : {events, config}) {
    if (!path.empty()) unlink(path.c_str());
  }
}

void tell_end(const TargetRun& run, const RunEvents& events, const LogFolder& folder, RunFiles& files,
              bool findings_only) {
  const std::set<pid_t> survivors = run.survivors();
  const bool runs_on = !survivors.empty();
  tell_survivors(survivors, events);
  tell_left_out(run, events);
  tell_signal(run, events);
  tell_way_past_exit(run, events);
  std::string complaint = events.complaint();
  if (!complaint.empty()) say("{}", printable(complaint));
  std::vector<std::string> logs = folder.logs(findings_only, run.killed());
  if (runs_on || !logs.empty() || found_anything(events) || !findings_only) files.events.clear();
  if (runs_on) files.config.clear();
  std::vector<std::string> all = all_logs(events, std::move(logs));
  say("{}{}", summary(run, events, all), printable(whereabouts(events, folder, all, run.pid())));
}

}  // namespace quarl
