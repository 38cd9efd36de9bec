// SPDX-License-Identifier: Apache-2.0
#include "frames/table/table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <span>

namespace quarl::frames {
namespace {

template <typename Item>
uint32_t append(std::vector<uint8_t>& bytes, std::span<const Item> items) {
  auto offset = static_cast<uint32_t>(bytes.size());
  auto* first = reinterpret_cast<const uint8_t*>(items.data());
  bytes.insert(bytes.end(), first, first + items.size_bytes());
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return offset;
}

}  // namespace

std::string TableId::file_name() const {
  std::string name = kind == kTextId ? "text-" : "";
  for (uint8_t byte : bytes) name += fmt::format("{:02x}", byte);
  return name + ".frames";
}

TableId table_id(const ElfModule& module) {
  std::vector<uint8_t> id = module.build_id();
  id.resize(std::min<size_t>(id.size(), kTableIdMax));
  if (!id.empty()) return {kBuildId, id};
  auto text = std::ranges::find_if(module.segments(), &Segment::executable);
  std::vector<uint32_t> aligned(text->bytes.size() / 4);
  std::memcpy(aligned.data(), text->bytes.data(), aligned.size() * 4);
  uint32_t words[] = {static_cast<uint32_t>(text->bytes.size()), table_checksum(aligned.data(), aligned.size() * 4)};
  id.resize(sizeof words);
  std::memcpy(id.data(), words, sizeof words);
  return {kTextId, id};
}

uint16_t Table::index_of(const FrameRule& rule) {
  auto* first = reinterpret_cast<const uint8_t*>(&rule);
  auto [position, added] = index_.try_emplace({first, first + sizeof rule}, static_cast<uint16_t>(rules_.size()));
  if (!added) return position->second;
  if (rules_.size() >= kNoRule) {
    index_.erase(position);
    return kNoRule;
  }
  rules_.push_back(rule);
  return position->second;
}

void Table::add(uint32_t address, const FrameRule* rule) {
  uint16_t index = rule == nullptr ? kNoRule : index_of(*rule);
  uint16_t last = rows_.empty() ? kNoRule : rows_.back().rule;
  if (index != last) rows_.push_back({address - module_.text_start(), index});
}

std::vector<uint8_t> Table::bytes(const std::string& path) const {
  TableHeader header = {};
  std::memcpy(header.magic, kTableMagic, sizeof header.magic);
  header.version = kTableVersion;
  header.machine = module_.arm() ? kTableArm : kTableI386;
  TableId id = table_id(module_);
  header.id_kind = id.kind;
  header.id_size = static_cast<uint8_t>(id.bytes.size());
  std::ranges::copy(id.bytes, header.id);
  header.text_start = module_.text_start();
  header.text_end = module_.text_end();
  header.page_count = (header.text_end - header.text_start + (1u << kTablePageBits) - 1) >> kTablePageBits;
  std::vector<uint32_t> pages(header.page_count + 1, static_cast<uint32_t>(rows_.size()));
  std::vector<TableRow> rows;
  for (const Row& row : rows_) {
    uint32_t& first = pages[row.distance >> kTablePageBits];
    first = std::min(first, static_cast<uint32_t>(rows.size()));
    rows.push_back({static_cast<uint16_t>(row.distance), row.rule});
  }
  for (size_t page = header.page_count; page-- > 0;) pages[page] = std::min(pages[page], pages[page + 1]);
  header.row_count = static_cast<uint32_t>(rows.size());
  header.rule_count = static_cast<uint32_t>(rules_.size());
  header.path_size = static_cast<uint32_t>(path.size() + 1);

  std::vector<uint8_t> bytes(sizeof header);
  header.pages_offset = append(bytes, std::span<const uint32_t>(pages));
  header.rows_offset = append(bytes, std::span<const TableRow>(rows));
  header.rules_offset = append(bytes, std::span<const FrameRule>(rules_));
  header.path_offset = append(bytes, std::span<const char>(path.c_str(), path.size() + 1));
  header.size = static_cast<uint32_t>(bytes.size());
  std::memcpy(bytes.data(), &header, sizeof header);
  std::vector<uint32_t> aligned(bytes.size() / 4);
  std::memcpy(aligned.data(), bytes.data(), bytes.size());
  header.checksum = table_checksum(aligned.data() + kTableChecked / 4, bytes.size() - kTableChecked);
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes;
}

}  // namespace quarl::frames
