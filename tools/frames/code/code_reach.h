// SPDX-License-Identifier: Apache-2.0
// Which addresses of a module hold instructions: what is reached from the known starts of functions, and from what is
// found in the gaps between.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "frames/code/code_map.h"
#include "frames/code/function_starts.h"
#include "frames/code/step.h"

namespace quarl::frames {

class CodeReach {
 public:
  explicit CodeReach(const ElfModule& module);

  const CodeMap& map() const { return map_; }
  Step step(uint32_t address, bool thumb, StackState& state) const;
  // The function starts, those found on the way too.
  const std::vector<FunctionStart>& functions() const { return functions_; }
  // Blocks that no instruction names, behind a jump through a register: they belong to that jump (a table of cases).
  const std::unordered_multimap<uint32_t, FunctionStart>& cases() const { return cases_; }

 private:
  std::optional<unsigned> asks_where(const CodeAt& code) const;
  Step step_of_i386(const CodeAt& code, StackState& state) const;
  void add_function(uint32_t address, bool thumb);
  void add_block(uint32_t address, bool thumb);
  void explore();
  void walk(FunctionStart from);
  void follow(uint32_t address, const Step& step, bool thumb, const StackState& state);
  void table_jump(uint32_t address, bool thumb, bool looks_like_return, const StackState& state);
  void literal(uint32_t address);
  void fill_gaps();
  bool arm_tail_call(uint32_t address, bool thumb) const;
  uint32_t fill_gap(uint32_t start, uint32_t end);
  uint32_t fill_gap(uint32_t start, uint32_t end, bool thumb);
  bool is_padding(uint32_t address, bool thumb) const;
  bool gap_is_thumb(uint32_t gap) const;
  std::optional<uint32_t> jump_before(uint32_t gap) const;

  const ElfModule& module_;
  CodeMap map_;
  std::vector<FunctionStart> functions_;
  std::deque<FunctionStart> pending_;
  std::unordered_multimap<uint32_t, FunctionStart> cases_;
  std::unordered_set<uint32_t> by_table_;       // jumps through a register whose cases are all known
  std::unordered_set<uint32_t> unknown_jumps_;  // those of which nothing is known
};

}  // namespace quarl::frames
