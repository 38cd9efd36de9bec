// SPDX-License-Identifier: Apache-2.0
#include "process/parked_threads.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <bit>
#include <optional>
#include <sstream>
#include <string>

#include "items/signal_text.h"
#include "process/proc.h"

namespace quarl {
namespace {

struct SystemCall {
  long number;
  uint64_t set, info, limit;  // the first three arguments
};

// What the thread sleeps in; nothing while it runs.
std::optional<SystemCall> current_call(pid_t pid, pid_t tid) {
  std::istringstream text(read_proc(pid, "task/" + std::to_string(tid) + "/syscall"));
  SystemCall call{};
  if (!(text >> std::dec >> call.number >> std::hex >> call.set >> call.info >> call.limit)) return std::nullopt;
  return call;
}

// rt_sigtimedwait; a 32-bit program has it in two numbers, for 32-bit and 64-bit times.
bool is_signal_wait(long number, bool emulated) {
  constexpr long kWait32 = 177, kWait32Time64 = 421;
  return emulated ? number == SYS_rt_sigtimedwait : number == kWait32 || number == kWait32Time64;
}

std::optional<ParkedThread> examine(pid_t pid, pid_t tid, bool emulated) {
  auto call = current_call(pid, tid);
  if (!call || !is_signal_wait(call->number, emulated) || call->limit != 0) return std::nullopt;
  int signal = machine_signal(kReleaseSignal, emulated);
  auto set = read_memory(pid, call->set);
  if (!set || std::popcount(*set) != 1 || std::countr_zero(*set) != signal - 1) return std::nullopt;
  return ParkedThread{pid, tid, signal};
}

}  // namespace

std::vector<ParkedThread> find_parked(pid_t pid) {
  std::vector<ParkedThread> parked;
  bool emulated = is_emulated(pid);
  for (pid_t tid : threads_of(pid)) {
    if (auto thread = examine(pid, tid, emulated)) parked.push_back(*thread);
  }
  if (!parked.empty() && !runs_under_checker(pid)) parked.clear();
  return parked;
}

bool release(const ParkedThread& thread) {
  return syscall(SYS_tgkill, thread.pid, thread.tid, thread.signal) == 0;
}

}  // namespace quarl
