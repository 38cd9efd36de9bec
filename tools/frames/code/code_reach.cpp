// SPDX-License-Identifier: Apache-2.0
#include "frames/code/code_reach.h"

#include <algorithm>

#include "frames/code/table_jump.h"
#include "frames/elf/pointers.h"

namespace quarl::frames {
namespace {

constexpr uint32_t kLargestFunction = 65536;
constexpr uint32_t kAlignment = 16;  // of blocks, filled up with padding

}  // namespace

CodeReach::CodeReach(const ElfModule& module) : module_(module), map_(module) {
  for (const FunctionStart& start : function_starts(module)) add_function(start.address, start.thumb);
  explore();
  fill_gaps();
}

// i386: the register that a direct call gives the address behind it, by a routine that touches no other
// (mov (%esp), %reg; ret).
std::optional<unsigned> CodeReach::asks_where(const CodeAt& code) const {
  if (code.bytes.size() < 5 || code.bytes[0] != 0xE8) return std::nullopt;
  auto routine = module_.bytes(code.address + 5 + (code.half(1) | code.half(3) << 16));
  bool asks =
      routine.size() >= 4 && routine[0] == 0x8B && (routine[1] & 0xC7) == 4 && routine[2] == 0x24 && routine[3] == 0xC3;
  return asks ? std::optional<unsigned>(routine[1] >> 3) : std::nullopt;
}

Step CodeReach::step_of_i386(const CodeAt& code, StackState& state) const {
  std::optional<unsigned> given = asks_where(code);
  if (!given) return step_i386(code, state);
  StackState unused = state;
  state.forget(*given);
  return step_i386(code, unused);
}

Step CodeReach::step(uint32_t address, bool thumb, StackState& state) const {
  CodeAt code{address, module_.bytes(address)};
  Step step = !module_.arm() ? step_of_i386(code, state) : thumb ? step_thumb(code, state) : step_arm(code, state);
  if (step.size > code.bytes.size()) step.size = 0;
  // lr may hold the place of a case as well.
  if (step.flow == Flow::kJump && by_table_.contains(address)) step.returns = false;
  return step;
}

void CodeReach::add_function(uint32_t address, bool thumb) {
  if (map_.has(address, CodeMap::kFunction) || map_.has(address, CodeMap::kData)) return;
  if (!map_.in(address) || (!thumb && module_.arm() && address % 4 != 0)) return;
  if (map_.has(address, thumb ? CodeMap::kKnownArm : CodeMap::kKnownThumb)) return;
  map_.add(address, CodeMap::kFunction);
  functions_.push_back({address, thumb});
  add_block(address, thumb);
}

void CodeReach::add_block(uint32_t address, bool thumb) {
  if (!map_.in(address) || map_.has(address, CodeMap::kData)) return;
  map_.add(address, CodeMap::kBlock);
  if (!map_.has(address, CodeMap::kInstruction)) pending_.push_back({address, thumb});
}

void CodeReach::explore() {
  while (!pending_.empty()) {
    FunctionStart next = pending_.front();
    pending_.pop_front();
    walk(next);
  }
}

// Along the instructions until one leads away for good, or into what is known already.
void CodeReach::walk(FunctionStart from) {
  StackState state = StackState::at_function_start(module_.arm());
  for (uint32_t at = from.address; map_.in(at) && !map_.has(at, CodeMap::kInstruction | CodeMap::kData);) {
    if (at != from.address && map_.has(at, CodeMap::kInside | CodeMap::kFunction)) break;
    Step step = this->step(at, from.thumb, state);
    if (step.size == 0 || step.flow == Flow::kStop) break;
    map_.add(at, CodeMap::kInstruction | (from.thumb ? CodeMap::kThumb : 0));
    map_.add_range(at + 1, step.size - 1u, CodeMap::kInside);
    follow(at, step, from.thumb, state);
    bool ends = (step.flow == Flow::kJump || step.flow == Flow::kReturn) && !step.conditional;
    if (ends) break;
    at += step.size;
    if (step.flow != Flow::kNext && step.flow != Flow::kCall && step.flow != Flow::kSystemCall)
      add_block(at, from.thumb);
  }
}

void CodeReach::follow(uint32_t address, const Step& step, bool thumb, const StackState& state) {
  if (step.literal) literal(*step.literal);
  if (step.number && !module_.relocatable() && map_.in(*step.number)) add_function(*step.number, false);
  switch (step.flow) {
    case Flow::kCall:
      if (step.target) add_function(*step.target, step.thumb);
      break;
    case Flow::kBranch:
    case Flow::kJump:
      if (step.target)
        add_block(*step.target, step.thumb);
      else if (step.flow == Flow::kJump)
        table_jump(address, thumb, step.returns, state);
      break;
    default:
      break;
  }
}

// ARM code goes to its cases by what it loads into pc or adds to it; bx is for other functions.
bool CodeReach::arm_tail_call(uint32_t address, bool thumb) const {
  return module_.arm() && !thumb && (module_.word(address).value_or(0) & 0x0FFFFFF0) == 0x012FFF10;
}

// What looks like a return is one, unless a table of cases says otherwise.
void CodeReach::table_jump(uint32_t address, bool thumb, bool looks_like_return, const StackState& state) {
  JumpTable table;
  if (module_.arm()) {
    uint32_t before = std::min(address - map_.start(), 32u);
    table = jump_table({address, module_.bytes(address)}, module_.bytes(address - before).first(before), thumb, state);
  }
  if (!table.targets.empty())
    by_table_.insert(address);
  else if (!looks_like_return && !arm_tail_call(address, thumb))
    unknown_jumps_.insert(address);
  if (table.size != 0) map_.add_range(table.address, table.size, CodeMap::kData);
  for (uint32_t target : table.targets) {
    if (!map_.has(target, CodeMap::kBlock)) cases_.emplace(address, FunctionStart{target, thumb});
    add_block(target, thumb);
  }
}

// A word in the code is data, and often a pointer.
void CodeReach::literal(uint32_t address) {
  map_.add_range(address, 4, CodeMap::kData);
  std::optional<uint32_t> word = module_.word(address);
  if (word && !module_.relocatable() && (*word & 1) && begins_by_saving(module_, *word - 1))
    add_function(*word - 1, true);
}

void CodeReach::fill_gaps() {
  for (uint32_t at = map_.start(); at < map_.end();) {
    if (map_.visited(at) || map_.has(at, CodeMap::kData)) {
      ++at;
      continue;
    }
    uint32_t end = at;
    while (end < map_.end() && !map_.visited(end) && !map_.has(end, CodeMap::kData)) ++end;
    uint32_t tried = fill_gap(at, end);
    explore();
    // In front of what was found there may be more.
    if (tried == end || !map_.visited(tried)) at = std::min(tried + 1, end);
  }
}

bool CodeReach::is_padding(uint32_t address, bool thumb) const {
  CodeAt code{address, module_.bytes(address)};
  if (!module_.arm()) return code.bytes.empty() || code.bytes[0] == 0x90 || code.bytes[0] == 0xCC || code.bytes[0] == 0;
  return thumb ? code.half(0) == 0 || code.half(0) == 0xBF00 : code.word(0) == 0 || code.word(0) == 0xE1A00000;
}

// The last jump in front of a gap, in the same function, that leads to nobody knows where; nothing when there is none.
std::optional<uint32_t> CodeReach::jump_before(uint32_t gap) const {
  uint32_t farthest = std::max(map_.start(), gap - std::min(gap, kLargestFunction));
  for (uint32_t at = gap; at > farthest; --at) {
    if (unknown_jumps_.contains(at))
      return module_.code_end(at) == module_.code_end(gap) ? std::optional(at) : std::nullopt;
    if (map_.has(at, CodeMap::kFunction)) break;
  }
  return std::nullopt;
}

// The instruction set of a gap is that of the code in front of it, unless a symbol tells it.
bool CodeReach::gap_is_thumb(uint32_t gap) const {
  if (map_.has(gap, CodeMap::kKnownThumb | CodeMap::kKnownArm)) return map_.has(gap, CodeMap::kKnownThumb);
  while (gap > map_.start() && !map_.has(gap, CodeMap::kInstruction)) --gap;
  return map_.has(gap, CodeMap::kThumb);
}

// The address in [start, end) that was taken for a start, or `end`. Behind what little ARM code there is, Thumb code
// may follow.
uint32_t CodeReach::fill_gap(uint32_t start, uint32_t end) {
  bool thumb = gap_is_thumb(start);
  uint32_t tried = fill_gap(start, end, thumb);
  bool perhaps_thumb = module_.arm() && !thumb && !map_.has(start, CodeMap::kKnownArm);
  return tried == end && perhaps_thumb ? fill_gap(start, end, true) : tried;
}

uint32_t CodeReach::fill_gap(uint32_t start, uint32_t end, bool thumb) {
  uint32_t unit = !module_.arm() ? 1 : thumb ? 2 : 4;
  start = (start + unit - 1) / unit * unit;
  std::optional<uint32_t> jump = jump_before(start);
  for (uint32_t at = start; at < end; at += unit) {
    if (is_padding(at, thumb)) continue;
    if (module_.arm() && saves_on_entry(module_, at, thumb)) {
      add_function(at, thumb);
      return at;
    }
    if (jump && at - start < kAlignment) {
      cases_.emplace(*jump, FunctionStart{at, thumb});
      add_block(at, thumb);
      return at;
    }
    if (module_.arm()) continue;
    if (in_eh_frame(module_, at)) return end;  // a part of a function that it names
    add_function(at, false);
    return at;
  }
  return end;
}

}  // namespace quarl::frames
