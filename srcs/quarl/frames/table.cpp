// SPDX-License-Identifier: Apache-2.0
#include "frames/table.h"

#include <cstring>

namespace quarl {
namespace {

constexpr uint32_t kPageBytes = 1U << kTablePageBits;
constexpr int32_t kMaxCfa = 1 << 28;  // no frame is larger

bool is_place(int16_t place) {
  return place == kPlaceLost || (place <= 0 && place % 4 == 0);
}

bool is_base_of(uint8_t base, uint16_t machine) {
  if (base == kFrameEbp || base == kFrameEbpWord) return machine == kTableI386;
  if (base == kFrameR7 || base == kFrameR11) return machine == kTableArm;
  return base <= kFrameRtSignal;
}

bool is_sound(const FrameRule& rule, uint16_t machine) {
  if (!is_base_of(rule.base, machine) || rule.cfa % 4 != 0 || rule.cfa > kMaxCfa || rule.cfa < -kMaxCfa) return false;
  return is_place(rule.return_place) && is_place(rule.frame_place) && is_place(rule.r11_place);
}

}  // namespace

FrameTable::Answer FrameTable::check(const void* data, size_t size, uint16_t machine) {
  header_ = static_cast<const TableHeader*>(data);
  if (size < sizeof(TableHeader) || memcmp(header_->magic, kTableMagic, sizeof kTableMagic) != 0) return kDamaged;
  if (header_->version != kTableVersion) return kOtherVersion;
  if (header_->size != size || size % sizeof(uint32_t) != 0 || header_->machine != machine) return kDamaged;
  const auto* checked = static_cast<const uint8_t*>(data) + kTableChecked;
  if (table_checksum(checked, size - kTableChecked) != header_->checksum) return kDamaged;
  return parts_fit() && pages_fit() && rows_fit() && rules_fit(machine) ? kSound : kDamaged;
}

bool FrameTable::parts_fit() const {
  const TableHeader& header = *header_;
  const auto fits = [&](uint32_t offset, uint64_t count, size_t each) {
    return offset % sizeof(uint32_t) == 0 && offset >= sizeof(TableHeader) && offset + count * each <= header.size;
  };
  return header.id_size >= 1 && header.id_size <= kTableIdMax && header.text_start <= header.text_end &&
         fits(header.pages_offset, uint64_t{header.page_count} + 1, sizeof(uint32_t)) &&
         fits(header.rows_offset, header.row_count, sizeof(TableRow)) &&
         fits(header.rules_offset, header.rule_count, sizeof(FrameRule));
}

// The index rises from 0 to the number of rows, and covers the text.
bool FrameTable::pages_fit() const {
  const uint32_t text = header_->text_end - header_->text_start;
  if (header_->page_count != text / kPageBytes + (text % kPageBytes != 0)) return false;
  uint32_t previous = 0;
  for (uint32_t i = 0; i <= header_->page_count; ++i) {
    if (pages()[i] < previous) return false;
    previous = pages()[i];
  }
  return pages()[0] == 0 && previous == header_->row_count;
}

bool FrameTable::rows_fit() const {
  for (uint32_t page = 0; page < header_->page_count; ++page) {
    for (uint32_t i = pages()[page]; i < pages()[page + 1]; ++i) {
      const TableRow& row = rows()[i];
      if (row.rule != kNoRule && row.rule >= header_->rule_count) return false;
      if (i > pages()[page] && row.low <= rows()[i - 1].low) return false;
    }
  }
  return true;
}

bool FrameTable::rules_fit(uint16_t machine) const {
  for (uint32_t i = 0; i < header_->rule_count; ++i) {
    if (!is_sound(rules()[i], machine)) return false;
  }
  return true;
}

bool FrameTable::is_for(TableIdKind kind, const uint8_t* id, size_t size) const {
  if (size > kTableIdMax) size = kTableIdMax;
  return header_->id_kind == kind && header_->id_size == size && memcmp(header_->id, id, size) == 0;
}

const FrameRule* FrameTable::find(uint32_t address) const {
  const uint32_t distance = address - header_->text_start;
  if (distance >= header_->text_end - header_->text_start) return nullptr;
  const uint32_t page = distance >> kTablePageBits;
  const auto low = static_cast<uint16_t>(distance % kPageBytes);
  uint32_t from = pages()[page];
  uint32_t to = pages()[page + 1];
  while (from < to) {  // the first row behind the address
    const uint32_t middle = from + (to - from) / 2;
    if (rows()[middle].low <= low) {
      from = middle + 1;
    } else {
      to = middle;
    }
  }
  if (from == 0) return nullptr;
  const uint16_t rule = rows()[from - 1].rule;
  return rule != kNoRule ? &rules()[rule] : nullptr;
}

}  // namespace quarl
