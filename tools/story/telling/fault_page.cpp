// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include <algorithm>

#include "story/telling/block_lines.h"
#include "story/telling/pages.h"

namespace quarl::story {
namespace {

std::string bytes_text(const Bytes& bytes) {
  std::string text;
  for (uint8_t byte : bytes) text += fmt::format("{}{:02x}", text.empty() ? "" : " ", byte);
  return text;
}

// Bytes of `found` that are not as they should be; none when it is not known what they should be.
std::optional<uint64_t> wrong_bytes(const std::vector<Fields>& words) {
  uint64_t wrong = 0;
  for (const Fields& word : words) {
    Bytes found = word.bytes("found"), expected = word.bytes("expected");
    if (found.empty() || found.size() != expected.size()) return std::nullopt;
    for (size_t at = 0; at < found.size(); ++at) wrong += found[at] != expected[at] ? 1 : 0;
  }
  return wrong == 0 ? std::nullopt : std::optional(wrong);
}

// The last byte that is looked at was overwritten: more behind it may be.
bool reaches_end(const std::vector<Fields>& words) {
  if (words.empty()) return false;
  Bytes found = words.back().bytes("found"), expected = words.back().bytes("expected");
  return !found.empty() && found.size() == expected.size() && found.back() != expected.back();
}

// Behind the block bytes count. In front of it stand addresses and numbers, of which a written byte may be as it was:
// words count there.
std::string overrun_head(const Event& event, bool tail) {
  Fields fields = event.fields();
  std::vector<Fields> words = fields.objects("bytes");
  auto block = fields.object("block");
  std::string where = (tail ? "behind " : "in front of ") + (block ? name_of_block(*block) : "a block");
  auto wrong = wrong_bytes(words);
  if (!wrong) return "memory was written " + where;
  if (!tail) return fmt::format("{} written {}", counted(words.size(), "word"), where);
  return fmt::format("{}{} written {}", reaches_end(words) ? "at least " : "", counted(*wrong, "byte"), where);
}

std::string double_free_head(const Event& event) {
  auto block = event.fields().object("block");
  std::string name = block ? name_of_block(*block) : "a block";
  return event.fields().text("found") == "resize" ? name + " resized after its release" : name + " released twice";
}

// The checker keeps nothing of a release; the record log does, when there is one.
void add_first_release(Page& page, const Process& process, const Fields& block) {
  if (!block.trace("released").empty()) return;
  if (!block.number("size")) page.line("allocated", "not known any more: its memory was used since");
  auto log = std::find_if(process.logs.begin(), process.logs.end(),
                          [](const std::string& path) { return path.ends_with("_quarlAll.log"); });
  if (log == process.logs.end()) {
    page.line("released", "not recorded; with QUARL_OUTPUT_LOG=1 the record log tells by whom");
  } else {
    page.line("released", fmt::format("the record log tells by whom: quarl report events --address 0x{:x} {}",
                                      block.address("address").value_or(0), *log));
  }
}

std::string found_text(const std::string& found, bool twice) {
  if (found == "release") return twice ? "when it was released again" : "when it was released";
  if (found == "resize") return "when it was resized";
  if (found == "search") return "when another block was released";
  if (found == "check") return "by a check of the heap";
  if (found == "exit") return "when the program ended";
  return found;
}

std::string word_text(const Fields& word) {
  Bytes expected = word.bytes("expected");
  std::string text = bytes_text(word.bytes("found"));
  return expected.empty() ? text : text + ", should be " + bytes_text(expected);
}

// Words in front of the block with how far in front.
void add_bytes(Page& page, const Fields& fields, bool tail) {
  auto block = fields.object("block");
  const uint32_t address = block ? block->address("address").value_or(0) : 0;
  for (const Fields& word : fields.objects("bytes")) {
    const uint32_t at = word.address("at").value_or(address);
    std::string distance = at < address ? fmt::format(", {} before it", counted(address - at, "byte")) : "";
    page.line(tail ? "behind it" : "in front", word_text(word) + distance);
  }
}

}  // namespace

Page fault_page(const Process& process, const Event& event, PlaceFinder& places) {
  Fields fields = event.fields();
  const bool twice = fields.text("kind") == "double-free", tail = fields.text("kind") == "tail-overrun";
  const bool known = twice || tail || fields.text("kind") == "head-overrun";
  Page page(process.name(), !known ? fields.text("kind") : twice ? double_free_head(event) : overrun_head(event, tail));
  if (auto block = fields.object("block")) {
    add_history(page, process, *block, places);
    if (twice) add_first_release(page, process, *block);
  }
  page.line("found", found_text(fields.text("found"), twice), places.calls(process, fields.trace("trace")));
  if (!twice) add_bytes(page, fields, tail);
  return page;
}

}  // namespace quarl::story
