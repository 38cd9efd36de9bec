// SPDX-License-Identifier: Apache-2.0
#include "process/stopped_threads.h"

#include <signal.h>

#include "message.h"
#include "process/checked_process.h"
#include "process/proc.h"
#include "refusal.h"

namespace quarl {
namespace {

constexpr std::chrono::seconds kPatience(2);

}  // namespace

void StoppedThreads::look(pid_t pid) {
  for (const ParkedThread& thread : find_parked(pid)) {
    if (!known_.contains({thread.pid, thread.tid})) handle(thread);
  }
}

// Those that are told to be stopped, and are not dealt with yet.
std::vector<std::pair<pid_t, pid_t>> StoppedThreads::expected() const {
  std::vector<std::pair<pid_t, pid_t>> threads;
  for (const story::Process& process : events_.processes().all()) {
    if (process.replaced) continue;
    for (pid_t tid : process.parked) {
      if (!known_.contains({process.pid, tid})) threads.emplace_back(process.pid, tid);
    }
  }
  return threads;
}

// What is dealt with reads more events, of threads that are stopped or have ended meanwhile.
bool StoppedThreads::look_where_told() {
  bool awaited = false;
  for (const auto& thread : expected()) {
    if (known_.contains(thread)) continue;
    auto since = awaited_.try_emplace(thread, Clock::now()).first->second;
    if (Clock::now() - since > kPatience) continue;
    look(thread.first);
    awaited = awaited || !known_.contains(thread);
  }
  return awaited;
}

// Only a thread that is seen to wait can be released: the signal would end the program before.
void StoppedThreads::handle(const ParkedThread& thread) {
  auto [pid, tid, signal] = thread;
  if (!keep_ && dump_comes(thread)) return;
  known_.insert({pid, tid});
  std::string name = thread_name(pid, tid);
  events_.read();  // its story was written before it was stopped
  if (!keep_) release(thread);
  const bool told = (keep_ ? events_.thread_kept(pid, tid) : events_.thread_ended(pid, tid)) && !tell_all_;
  if (told) return;
  if (keep_) {
    say("thread {} ({}) of process {} is parked after a fault; end it with: quarl release {} {}", tid, name, pid, pid,
        tid);
  } else {
    say("thread {} ({}) of process {} was parked after a fault and is released to end", tid, name, pid);
  }
}

// The agent keeps a process whose other threads have ended, and such a process writes no logs any more: it is asked for
// them while there is a thread to do it. True until they are written.
bool StoppedThreads::dump_comes(const ParkedThread& thread) {
  const story::Process* process = events_.processes().find(thread.pid);
  if (process == nullptr || process->agent_port == 0) return false;
  auto [dump, first] = dumps_.try_emplace(thread.pid, Dump{Clock::now(), process->snapshots});
  if (!first) return process->snapshots == dump->second.before && Clock::now() - dump->second.since < kPatience;
  try {
    CheckedProcess(thread.pid).signal_dump();
  } catch (const Refusal&) {
    return false;
  }
  return true;
}

void StoppedThreads::end_lonely_agents() {
  for (const auto& [pid, tid] : known_) {
    if (thread_lives(pid, tid) || !only_agent_left(pid)) continue;
    say("nothing but the agent is left of process {}; it is ended", pid);
    kill(pid, SIGKILL);
  }
}

}  // namespace quarl
