// SPDX-License-Identifier: Apache-2.0
#include "story/telling/block_lines.h"

#include <fmt/format.h>

namespace quarl::story {
namespace {

std::string allocation_text(const Fields& block) {
  std::string text;
  if (auto number = block.number("seq")) text += fmt::format("#{}", *number);
  if (auto thread = block.number("thread")) text += fmt::format("{}by thread {}", text.empty() ? "" : " ", *thread);
  std::string operation = block.text("operation");
  if (!operation.empty()) text += fmt::format("{}{}", text.empty() ? "" : ", ", operation);
  // The entry of the library itself, which nobody misses, is the innermost.
  if (block.number("lost").value_or(0) > 1) text += "; its innermost calls are overwritten";
  return text;
}

}  // namespace

std::string name_of_block(const Fields& block) {
  if (auto size = block.number("size")) return "a block of " + counted(*size, "byte");
  return fmt::format("the block at 0x{:08x}", block.address("address").value_or(0));
}

void add_history(Page& page, const Process& process, const Fields& block, PlaceFinder& places) {
  std::string text = allocation_text(block);
  Places allocated = places.calls(process, block.trace("allocated"));
  if (text.empty() && block.flag("damaged")) text = "not known: its header is damaged";
  if (!text.empty() || !allocated.empty()) page.line("allocated", text, std::move(allocated));
  Places released = places.calls(process, block.trace("released"));
  if (!released.empty()) page.line("released", "", std::move(released));
}

}  // namespace quarl::story
