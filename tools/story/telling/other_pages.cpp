// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <signal.h>

#include <cstring>

#include "story/telling/block_lines.h"
#include "story/telling/pages.h"

namespace quarl::story {
namespace {

// The numbers up to 31 are the same on all targets and here.
std::string name_of_signal(int signal) {
  const char* name = signal > 0 && signal < 32 ? sigabbrev_np(signal) : nullptr;
  return name == nullptr ? fmt::format("signal {}", signal) : fmt::format("SIG{}", name);
}

constexpr std::string_view kTextStart = "quarl: ";  // of what is printed without a page around it

// Where an address lies that is `distance` bytes from a block's first one.
std::string near_text(const Fields& block, int64_t distance) {
  std::string relation = block.text("relation"), name = name_of_block(block);
  int64_t size = static_cast<int64_t>(block.number("size").value_or(0) & 0xffffffff);
  auto bytes = [](int64_t number) { return counted(static_cast<uint64_t>(std::max<int64_t>(number, 0)), "byte"); };
  if (relation == "before") return fmt::format("{} in front of {}", bytes(distance == INT64_MIN ? 0 : -distance), name);
  if (relation == "behind") return fmt::format("{} behind the end of {}", bytes(distance - size), name);
  if (relation == "released") return fmt::format("{} into {} that was released", bytes(distance), name);
  if (relation.empty()) return fmt::format("{} behind the first byte of {}", bytes(distance), name);
  return fmt::format("{} into {}", bytes(distance), name);
}

std::string number_text(const Fields& fields, const char* key) {
  auto number = fields.number(key);
  return number ? counted(*number, "byte") : "an unknown number of bytes";
}

}  // namespace

bool is_crash(int signal) {
  return signal == SIGSEGV || signal == SIGBUS || signal == SIGABRT || signal == SIGILL || signal == SIGFPE ||
         signal == SIGTRAP || signal == SIGSYS;
}

Page crash_page(const Process& process, const Event& event, PlaceFinder& places) {
  Fields fields = event.fields();
  std::string head = "ended by " + name_of_signal(static_cast<int>(fields.number("signal").value_or(0) & 0x7f));
  if (auto at = fields.address("at")) head += fmt::format(": no access to 0x{:08x}", *at);
  Page page(process.name(), head);
  page.line("in", fmt::format("thread {}", event.tid()),
            places.crash(process, fields.frame("pc"), fields.trace("trace")));
  if (auto block = fields.object("near")) {
    page.line("address", near_text(*block, block->distance("distance").value_or(0)));
    add_history(page, process, *block, places);
  }
  return page;
}

Page limit_page(const Process& process, const Event& event, PlaceFinder& places) {
  Fields fields = event.fields();
  bool stack = fields.text("kind") == "stack";
  Page page(process.name(),
            fmt::format("the limit of the {} is reached: {}", stack ? "stack" : "heap", number_text(fields, "limit")));
  page.line("held", number_text(fields, "held"));
  std::string request = fields.number("request") ? number_text(fields, "request") + ", " : "";
  page.line("asked for", fmt::format("{}by thread {}", request, event.tid()),
            places.calls(process, fields.trace("trace")));
  return page;
}

Page trouble_page(const Process& process, const Event& event) {
  Fields fields = event.fields();
  std::string head = fields.text("text").empty() ? "trouble with " + fields.text("what") : fields.text("text");
  if (head.starts_with(kTextStart)) head.erase(0, kTextStart.size());
  for (const char* key : {"path", "error"}) {
    std::string detail = fields.text(key);
    if (!detail.empty() && head.find(detail) == std::string::npos) head += ": " + detail;
  }
  return {process.name(), head};
}

}  // namespace quarl::story
