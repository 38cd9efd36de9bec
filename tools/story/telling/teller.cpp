// SPDX-License-Identifier: Apache-2.0
#include "story/telling/teller.h"

#include <fmt/format.h>

#include "story/telling/pages.h"

namespace quarl::story {
namespace {

using Clock = std::chrono::steady_clock;

std::string fate_text(Fate fate) {
  switch (fate) {
    case Fate::kEnded:
      return "the thread was stopped there; it is ended now";
    case Fate::kGone:
      return "the thread was stopped there; the process has ended";
    case Fate::kStopped:
      break;
  }
  return "the thread is stopped there; signal 60 ends it";
}

// A fault that stops a thread is news each time, unless it is known to be of the same block.
std::optional<FaultKey> key_of(const Fields& fields) {
  auto block = fields.object("block");
  auto address = block ? block->address("address") : std::nullopt;
  auto number = block ? block->number("seq") : std::nullopt;
  std::string kind = fields.text("kind");
  if (!address || (!number && kind == "double-free")) return std::nullopt;
  return FaultKey{kind, *address, number.value_or(0)};
}

}  // namespace

void Teller::tell(const Page& page) {
  for (const std::string& warning : places_.take_warnings()) say_("quarl: " + printable(warning) + "\n");
  say_(page.text(colours_));
}

void Teller::take(const Event& event) {
  if (event.kind() == "loaded" || event.kind() == "exit") settle_process(event.pid());
  Process& process = processes_.take(event);
  if (event.dropped() != 0)
    tell(
        {process.name(), fmt::format("{} could not be written and cannot be told", counted(event.dropped(), "event"))});
  tell_kind(process, event);
}

void Teller::tell_kind(Process& process, const Event& event) {
  const std::string& kind = event.kind();
  if (kind == "fault") {
    tell_fault(process, event);
  } else if (kind == "crash") {
    crashes_ += 1;
    tell(crash_page(process, event, places_));
  } else if (kind == "limit") {
    waiting_.push_back({event.pid(), event.tid(), limit_page(process, event, places_), Clock::now()});
  } else if (kind == "ended") {
    settle(event.pid(), static_cast<pid_t>(event.fields().number("thread").value_or(0)), Fate::kEnded);
  } else if (kind == "confined") {
    tell({process.name(), "sets itself a filter of system calls: from now on nothing can be told of it"});
  } else if (kind == "trouble") {
    troubles_ += 1;
    tell(trouble_page(process, event));
  } else if (kind == "snapshot") {
    tell_snapshot(process, event);
  }
}

void Teller::tell_fault(Process& process, const Event& event) {
  ++reports_;
  Fields fields = event.fields();
  auto key = key_of(fields);
  if (key && !process.faults.insert(*key).second) return;
  ++faults_;
  Page page = fault_page(process, event, places_);
  if (fields.flag("stops")) {
    waiting_.push_back({event.pid(), event.tid(), std::move(page), Clock::now()});
  } else {
    tell(page);
  }
}

// Somebody asked for it; those at exit and by the clock are no news.
void Teller::tell_snapshot(const Process& process, const Event& event) {
  Fields fields = event.fields();
  if (fields.text("kind") != "dump") return;
  auto figure = [&](const char* key, const char* noun) { return counted(fields.number(key).value_or(0), noun); };
  tell({process.name(), fmt::format("{} in {} are held now: {}", figure("bytes", "byte"), figure("blocks", "block"),
                                    fields.text("path"))});
}

bool Teller::settle(pid_t pid, pid_t tid, Fate fate, const std::string& remark) {
  bool any = false;
  for (auto story = waiting_.begin(); story != waiting_.end();) {
    if (story->pid != pid || story->tid != tid) {
      ++story;
      continue;
    }
    story->page.remark(remark.empty() ? fate_text(fate) : remark);
    tell(story->page);
    story = waiting_.erase(story);
    any = true;
  }
  return any;
}

void Teller::settle_process(pid_t pid) {
  std::set<pid_t> threads;
  for (const Waiting& story : waiting_) {
    if (story.pid == pid) threads.insert(story.tid);
  }
  for (pid_t tid : threads) settle(pid, tid, Fate::kGone);
}

void Teller::settle_older_than(std::chrono::milliseconds age) {
  while (!waiting_.empty() && Clock::now() - waiting_.front().since >= age)
    settle(waiting_.front().pid, waiting_.front().tid, Fate::kStopped);
}

}  // namespace quarl::story
