// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <memory>

#include "message.h"
#include "process/parked_threads.h"
#include "process/proc.h"
#include "refusal.h"
#include "verbs/verbs.h"

namespace quarl {
namespace {

constexpr const char* kFooter =
    "A parked thread waits for signal 60 alone; it is found by what the kernel says of it. Released, it ends;\n"
    "the rest of the process runs on.\n\n"
    "Exit status: 0 when a thread was released, 1 when none is parked, 2 on wrong usage.\n\n"
    "Examples:\n  quarl release 1234\n  quarl release 1234 1240";

int release_threads(pid_t pid, pid_t only) {
  int released = 0;
  for (const ParkedThread& thread : find_parked(pid)) {
    if (only != 0 && thread.tid != only) continue;
    std::string name = thread_name(pid, thread.tid);
    if (!release(thread)) continue;
    fmt::print("released thread {} ({})\n", thread.tid, name);
    ++released;
  }
  if (released > 0) return kDone;
  if (threads_of(pid).empty()) refuse("there is no process {}", pid);
  refuse("no {} of process {} is parked", only ? fmt::format("thread {}", only) : "thread", pid);
}

}  // namespace

void add_release(CLI::App& app, int& exit_status) {
  auto* verb = app.add_subcommand("release", "End threads that are parked after a fault.");
  auto pid = std::make_shared<pid_t>();
  auto tid = std::make_shared<pid_t>();
  verb->add_option("PID", *pid, "Process on this machine")->required()->type_name("");
  verb->add_option("TID", *tid, "Only this thread")->type_name("");
  verb->footer(kFooter);
  verb->callback([pid, tid, &exit_status] { exit_status = release_threads(*pid, *tid); });
}

}  // namespace quarl
