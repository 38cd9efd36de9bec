#include "frames/code/call_sites.h"

#include <algorithm>

namespace quarl::frames {
namespace {

struct Block {
  StackState state;
  uint32_t function;
  bool thumb;
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
      if (doubtful_.contains(functions_[address])) call.state.reset();
    }
    return std::move(calls_);
  }

 private:
  bool starts_function(uint32_t address) const { return reach_.map().has(address, CodeMap::kFunction); }

  void arrive(uint32_t address, bool thumb, const StackState& state, uint32_t function) {
    if (!reach_.map().has(address, CodeMap::kInstruction)) return;
    if (starts_function(address) && address != function) return;
    auto [position, added] = blocks_.try_emplace(address, Block{state, function, thumb, false});
    Block& block = position->second;
    bool fresh = added || (address != function && block.state.join(state));
    if (!fresh || block.queued) return;
    block.queued = true;
    pending_.push_back(address);
  }

  bool lost_return(const StackState& state) const {
    return module_.arm() && state.reg(StackState::kLr) != Value{Value::kEntry, StackState::kLr, 0};
  }

  bool is_call(const Step& step) const { return step.flow == Flow::kCall || step.flow == Flow::kSystemCall; }

  void walk(uint32_t start) {
    Block block = blocks_.at(start);
    StackState state = block.state;
    for (uint32_t at = start; reach_.map().has(at, CodeMap::kInstruction);) {
      if (at != start && reach_.map().has(at, CodeMap::kBlock)) return arrive(at, block.thumb, state, block.function);
      if (lost_return(state) && reach_.saves_return(at, block.thumb)) {
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
    if (step.flow == Flow::kReturn && !returns_well(state)) doubtful_.insert(block.function);
    if (step.flow != Flow::kBranch && step.flow != Flow::kJump) return;
    if (step.target) return arrive(*step.target, step.thumb, before, block.function);
    auto [first, last] = reach_.cases().equal_range(at);
    for (; first != last; ++first) arrive(first->second.address, first->second.thumb, before, block.function);
  }

  bool returns_well(const StackState& state) const {
    return state.reg(module_.arm() ? StackState::kSp : StackState::kEsp) == frame_value(0);
  }

  const ElfModule& module_;
  const CodeReach& reach_;
  std::unordered_map<uint32_t, Block> blocks_;
  std::vector<uint32_t> pending_;
  std::map<uint32_t, CallSite> calls_;
  std::unordered_map<uint32_t, uint32_t> functions_;  // of calls
  std::unordered_set<uint32_t> doubtful_;
};

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
  sweep(module, reach, calls);
  std::vector<CallSite> sites;
  sites.reserve(calls.size());
  for (auto& [address, call] : calls) sites.push_back(std::move(call));
  return sites;
}

}  // namespace quarl::frames
