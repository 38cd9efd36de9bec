// SPDX-License-Identifier: Apache-2.0
#include "process/run_events.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>

#include "story/telling/terminal.h"

namespace quarl {
namespace {

// One write, so that it does not mix with what the program prints on the same terminal.
void print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void print_nothing(const std::string&) {}

report::DeskOptions desk_of(const std::string& sysroot) {
  report::DeskOptions desk;
  if (!sysroot.empty()) desk.sysroots.push_back(sysroot);
  return desk;
}

}  // namespace

RunEvents::RunEvents(const std::string& path, const std::string& sysroot, bool raw)
    : file_(path),
      teller_(desk_of(sysroot), story::wants_colours(STDERR_FILENO),
              raw ? story::Teller::Say(print_nothing) : story::Teller::Say(print)) {
  file_.skip_to_end();
}

bool RunEvents::read() {
  bool any = false;
  file_.clear();
  file_.read([&](const events::Event& event) {
    any = true;
    teller_.take(event);
  });
  return any;
}

bool RunEvents::thread_ended(pid_t pid, pid_t tid) {
  return teller_.settle(pid, tid, story::Fate::kEnded);
}

bool RunEvents::thread_kept(pid_t pid, pid_t tid) {
  return teller_.settle(pid, tid, story::Fate::kStopped,
                        fmt::format("the thread is stopped there; end it with: quarl release {} {}", pid, tid));
}

}  // namespace quarl
