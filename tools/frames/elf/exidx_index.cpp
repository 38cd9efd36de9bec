// SPDX-License-Identifier: Apache-2.0
#include "frames/elf/exidx_index.h"

#include <elf.h>

#include <algorithm>

namespace quarl::frames {
namespace {

constexpr uint32_t kCannotUnwind = 1;
constexpr uint32_t kInPlace = 0x80000000;

// A distance of 31 bits from where it stands.
uint32_t target_of(uint32_t place, uint32_t word) {
  return place + static_cast<uint32_t>(static_cast<int32_t>(word << 1) >> 1);
}

void append(std::vector<uint8_t>& bytes, uint32_t word, unsigned count) {
  for (unsigned index = count; index-- > 0;) bytes.push_back(static_cast<uint8_t>(word >> (8 * index)));
}

}  // namespace

ExidxIndex::ExidxIndex(const ElfModule& module) : module_(module) {
  std::optional<Segment> part = module.part(PT_ARM_EXIDX);
  if (!part) return;
  for (uint32_t at = 0; at + 8 <= part->bytes.size(); at += 8) {
    std::optional<uint32_t> word = module.word(part->address + at);
    if (!word) break;
    uint32_t start = target_of(part->address + at, *word) & ~1u;
    if (module.is_code(start)) functions_.push_back({start, part->address + at});
  }
  std::ranges::stable_sort(functions_, {}, &Function::start);
}

const ExidxIndex::Function* ExidxIndex::find(uint32_t address) const {
  auto after = std::ranges::upper_bound(functions_, address, {}, &Function::start);
  return after == functions_.begin() ? nullptr : &after[-1];
}

std::optional<std::vector<uint8_t>> ExidxIndex::instructions(const Function& function) const {
  uint32_t place = function.entry + 4;
  uint32_t word = module_.word(place).value_or(kCannotUnwind);
  if (word == kCannotUnwind) return std::nullopt;
  std::vector<uint8_t> bytes;
  if (!(word & kInPlace)) {
    place = target_of(place, word);
    std::optional<uint32_t> head = module_.word(place);
    if (!head) return std::nullopt;
    word = *head;
    if (!(word & kInPlace)) {
      // A personality routine of C++: its data begins as that of routine 1 does.
      place += 4;
      head = module_.word(place);
      if (!head) return std::nullopt;
      append(bytes, *head, 3);
      for (uint32_t left = *head >> 24; left > 0; --left) {
        head = module_.word(place += 4);
        if (!head) return std::nullopt;
        append(bytes, *head, 4);
      }
      return bytes;
    }
  }
  uint32_t routine = word >> 24 & 0x7F;
  if (routine == 0) {
    append(bytes, word, 3);
    return bytes;
  }
  if (routine > 2) return std::nullopt;
  append(bytes, word, 2);
  for (uint32_t left = word >> 16 & 0xFF; left > 0; --left) {
    std::optional<uint32_t> more = module_.word(place += 4);
    if (!more) return std::nullopt;
    append(bytes, *more, 4);
  }
  return bytes;
}

}  // namespace quarl::frames
