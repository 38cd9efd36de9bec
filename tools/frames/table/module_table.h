// SPDX-License-Identifier: Apache-2.0
// From a module to its table, and how much of the module's calls it covers.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "frames/sources/rule_source.h"
#include "frames/table/table.h"

namespace quarl::frames {

struct Coverage {
  uint32_t calls = 0;
  std::array<uint32_t, kSourceCount> by = {};  // by Source

  uint32_t covered() const;
  Coverage& operator+=(const Coverage& other);
};

// How often what is derived from the code says the same as another source, and where it does not.
struct Agreement {
  struct Difference {
    uint32_t call;
    FrameRule rule, derived;
  };
  uint32_t same = 0, different = 0, unknown = 0;  // unknown: nothing could be derived
  std::vector<Difference> differences;
};

struct ModuleTable {
  TableId id;
  std::vector<uint8_t> bytes;
  uint32_t size = 0, rows = 0, rules = 0;
  Coverage coverage;
  std::array<Agreement, kSourceCount> agreement;  // filled when asked for
};

struct TableOptions {
  bool derive = true;
  bool compare = false;    // fill in the agreement
  std::string debug_path;  // as for ElfModule
};

// Throws NoModule. `target_path`: where the file lies on the target.
ModuleTable make_table(const std::string& path, const std::string& target_path, const TableOptions& options);

}  // namespace quarl::frames
