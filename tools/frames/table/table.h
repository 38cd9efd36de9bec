// SPDX-License-Identifier: Apache-2.0
// The table of one module in the making: rows by address, rules without repetition; then the bytes of its file.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "frames/elf/elf_module.h"
#include "quarl/frames/table_format.h"

namespace quarl::frames {

struct TableId {
  TableIdKind kind;
  std::vector<uint8_t> bytes;

  std::string file_name() const;
};

TableId table_id(const ElfModule& module);

class Table {
 public:
  explicit Table(const ElfModule& module) : module_(module) {}

  // From `address` on the rule holds, or none does; addresses ascend. A row that says what the one before it says is
  // left out.
  void add(uint32_t address, const FrameRule* rule);
  size_t row_count() const { return rows_.size(); }
  size_t rule_count() const { return rules_.size(); }
  // `path` is for people.
  std::vector<uint8_t> bytes(const std::string& path) const;

 private:
  struct Row {
    uint32_t distance;
    uint16_t rule;
  };
  uint16_t index_of(const FrameRule& rule);

  const ElfModule& module_;
  std::vector<Row> rows_;
  std::vector<FrameRule> rules_;
  std::map<std::vector<uint8_t>, uint16_t> index_;  // by the bytes of the rule
};

}  // namespace quarl::frames
