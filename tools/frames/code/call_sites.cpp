// SPDX-License-Identifier: Apache-2.0
#include "frames/code/call_sites.h"

#include <algorithm>

namespace quarl::frames {
namespace {

struct Block {
  StackState state;
  uint32_t function;
  bool thumb;
  bool weak;  // reached from a call in front of it alone, which perhaps does not return
  bool queued;
};

// States are carried along the blocks until they change no more; where two ways meet, what both know is kept. A
// function whose returns do not find the stack as it was when it was called was not understood: nothing of it is used.
class StackFlow {
 public:
  StackFlow(const ElfModule& module, const CodeReach& reach) : module_(module), reach_(reach) {}

  std::map<uint32_t, CallSite> run() {
    for (const FunctionStart& start : reach_.functions()) {
      arrive(start.address, start.thumb, StackState::at_function_start(module_.arm()), start.address);
    }
    while (!pending_.empty()) {
      uint32_t address = pending_.back();
      pending_.pop_back();
      blocks_.at(address).queued = false;
      walk(address);
    }
    for (auto& [address, call] : calls_) {
      if (doubtful_.contains(functions_[address]) || lost_by_call(call)) call.state.reset();
    }
    return std::move(calls_);
  }

 private:
  bool starts_function(uint32_t address) const { return reach_.map().has(address, CodeMap::kFunction); }

  unsigned stack_register() const { return module_.arm() ? StackState::kSp : StackState::kEsp; }

  void arrive(uint32_t address, bool thumb, const StackState& state, uint32_t function, bool weak = false) {
    if (!reach_.map().has(address, CodeMap::kInstruction) || reach_.map().has(address, CodeMap::kData)) return;
    if (starts_function(address) && address != function) return;
    auto [position, added] = blocks_.try_emplace(address, Block{state, function, thumb, weak, false});
    Block& block = position->second;
    bool fresh = added || (address != function && meet(block, state, function, weak));
    if (!fresh || block.queued) return;
    block.queued = true;
    pending_.push_back(address);
  }

  // Where two ways do not agree about the stack and one comes from behind a call, that call does not return. Nor does
  // code of two functions meet with different stacks, unless one was taken for a part of the other.
  bool meet(Block& block, const StackState& state, uint32_t function, bool weak) {
    const Value &known = block.state.reg(stack_register()), &other = state.reg(stack_register());
    if (known != other && known.kind == Value::kFrame && other.kind == Value::kFrame) {
      if (weak || (function != block.function && !block.weak)) return false;
      if (block.weak) {
        block.state = state;
        block.function = function;
        block.weak = false;
        return true;
      }
    }
    block.weak = block.weak && weak;
    return block.state.join(state);
  }

  // A call overwrites lr: what makes one without saving it is no function that was understood.
  bool lost_by_call(const CallSite& call) const {
    if (!module_.arm() || call.system_call) return false;
    return call.state->reg(StackState::kLr) == Value{Value::kEntry, StackState::kLr, 0} &&
           !call.state->saved(StackState::kLr);
  }

  bool lost_return(const StackState& state) const {
    return module_.arm() && state.reg(StackState::kLr) != Value{Value::kEntry, StackState::kLr, 0};
  }

  bool is_call(const Step& step) const { return step.flow == Flow::kCall || step.flow == Flow::kSystemCall; }

  void walk(uint32_t start) {
    Block block = blocks_.at(start);
    StackState state = block.state;
    bool behind_call = block.weak;
    for (uint32_t at = start; reach_.map().has(at, CodeMap::kInstruction) && !reach_.map().has(at, CodeMap::kData);) {
      if (at != start && reach_.map().has(at, CodeMap::kBlock)) {
        return arrive(at, block.thumb, state, block.function, behind_call);
      }
      if (lost_return(state) && saves_on_entry(module_, at, block.thumb)) {
        // The call before does not return: another function starts here.
        state = StackState::at_function_start(true);
        block.function = at;
      }
      StackState before = state;
      Step step = reach_.step(at, block.thumb, state);
      if (step.size == 0 || step.flow == Flow::kStop) return;
      if (is_call(step)) {
        calls_[at] = {at, at + step.size, step.flow == Flow::kSystemCall, before};
        functions_[at] = block.function;
      }
      behind_call = is_call(step);
      leave(at, step, block, before, state);
      bool ends = (step.flow == Flow::kJump || step.flow == Flow::kReturn) && !step.conditional;
      if (ends) return;
      if (step.flow == Flow::kReturn || step.flow == Flow::kJump) {
        // It was not taken: everything is as it was.
        before.conditional = state.conditional;
        state = before;
      }
      at += step.size;
    }
  }

  void leave(uint32_t at, const Step& step, const Block& block, const StackState& before, const StackState& state) {
    bool returns = step.flow == Flow::kReturn || step.returns;
    if (returns && !returns_well(step, before, state)) doubtful_.insert(block.function);
    if (returns || (step.flow != Flow::kBranch && step.flow != Flow::kJump)) return;
    if (step.target) return arrive(*step.target, step.thumb, before, block.function);
    auto [first, last] = reach_.cases().equal_range(at);
    for (; first != last; ++first) arrive(first->second.address, first->second.thumb, before, block.function);
  }

  // A stack that is not known at all tells nothing wrong. Nor does bx lr with what a call left there: that call does
  // not return, and another function follows it.
  bool returns_well(const Step& step, const StackState& before, const StackState& state) const {
    const Value &stack = before.reg(stack_register()), &behind = state.reg(stack_register());
    if (stack.kind != Value::kFrame) return true;
    if (before.reg(StackState::kLr).kind == Value::kBehindCall && stack == behind) return true;
    return step.flow == Flow::kReturn && behind == frame_value(0);
  }

  const ElfModule& module_;
  const CodeReach& reach_;
  std::unordered_map<uint32_t, Block> blocks_;
  std::vector<uint32_t> pending_;
  std::map<uint32_t, CallSite> calls_;
  std::unordered_map<uint32_t, uint32_t> functions_;  // of calls
  std::unordered_set<uint32_t> doubtful_;
};

// Calls in code that is known, but on no way that a state was carried along.
void add_unreached(const ElfModule& module, const CodeReach& reach, std::map<uint32_t, CallSite>& calls) {
  const CodeMap& map = reach.map();
  StackState unused = StackState::at_function_start(module.arm());
  for (uint32_t at = map.start(); at < map.end(); ++at) {
    if (!map.has(at, CodeMap::kInstruction) || map.has(at, CodeMap::kData)) continue;
    Step step = reach.step(at, map.has(at, CodeMap::kThumb), unused);
    bool system_call = step.flow == Flow::kSystemCall;
    if (system_call || step.flow == Flow::kCall) calls.try_emplace(at, CallSite{at, at + step.size, system_call, {}});
  }
}

// Calls in code that nothing leads to, straight from the end of what is known.
void sweep(const ElfModule& module, const CodeReach& reach, std::map<uint32_t, CallSite>& calls) {
  const CodeMap& map = reach.map();
  bool thumb = false;
  StackState unused = StackState::at_function_start(module.arm());
  for (uint32_t at = map.start(); at < map.end();) {
    if (map.visited(at)) {
      if (map.has(at, CodeMap::kInstruction)) thumb = map.has(at, CodeMap::kThumb);
      ++at;
      continue;
    }
    if (map.has(at, CodeMap::kKnownThumb)) thumb = true;
    if (map.has(at, CodeMap::kKnownArm)) thumb = false;
    uint32_t unit = !module.arm() ? 1 : thumb ? 2 : 4;
    if (map.has(at, CodeMap::kData) || at % unit != 0) {
      ++at;
      continue;
    }
    Step step = reach.step(at, thumb, unused);
    if (step.size == 0) step.size = static_cast<uint8_t>(unit);
    bool call = step.flow == Flow::kCall && (!step.target || map.in(*step.target));
    for (uint32_t inside = at; inside < at + step.size; ++inside) call = call && !map.visited(inside);
    if (call) calls.try_emplace(at, CallSite{at, at + step.size, false, std::nullopt});
    at += step.size;
  }
}

}  // namespace

std::vector<CallSite> find_calls(const ElfModule& module) {
  CodeReach reach(module);
  std::map<uint32_t, CallSite> calls = StackFlow(module, reach).run();
  add_unreached(module, reach, calls);
  sweep(module, reach, calls);
  std::vector<CallSite> sites;
  sites.reserve(calls.size());
  for (auto& [address, call] : calls) sites.push_back(std::move(call));
  return sites;
}

}  // namespace quarl::frames
