// SPDX-License-Identifier: Apache-2.0
#include "frames/code/stack_state.h"

#include <algorithm>
#include <span>

namespace quarl::frames {

Value Value::plus(int32_t more) const {
  if (!on_stack() && kind != kConstant) return {};
  return {kind, 0, static_cast<int32_t>(static_cast<uint32_t>(offset) + static_cast<uint32_t>(more))};
}

StackState StackState::at_function_start(bool arm) {
  StackState state;
  for (uint8_t number = 0; number < 16; ++number) state.registers_[number] = {Value::kEntry, number, 0};
  state.stack_register_ = arm ? kSp : kEsp;
  state.registers_[state.stack_register_] = frame_value(arm ? 0 : -4);
  if (!arm) state.slots_.emplace_back(frame_value(-4), Value{Value::kEntry, kReturn, 0});
  return state;
}

// What lies below the stack pointer is lost.
void StackState::set(unsigned number, Value value) {
  registers_[number] = value;
  if (number != stack_register_ || !value.on_stack()) return;
  std::erase_if(slots_, [&](const auto& slot) {
    const Value& place = slot.first;
    return place.kind == value.kind ? place.offset < value.offset : place.kind == Value::kRealigned;
  });
}

void StackState::store(Value address, Value what) {
  if (!address.on_stack()) return;
  std::erase_if(slots_, [&](const auto& slot) {
    const Value& place = slot.first;
    return place.kind == address.kind && place.offset > address.offset - 4 && place.offset < address.offset + 4;
  });
  if (what.kind == Value::kEntry || what.kind == Value::kFrame) slots_.emplace_back(address, what);
}

Value StackState::load(Value address) const {
  if (!address.on_stack()) return {};
  for (const auto& [place, value] : slots_) {
    if (place == address) return value;
  }
  return {};
}

void StackState::push(Value what) {
  set(stack_register_, registers_[stack_register_].plus(-4));
  store(registers_[stack_register_], what);
}

void StackState::realign() {
  const bool known = registers_[stack_register_].kind == Value::kFrame;
  set(stack_register_, known ? Value{Value::kRealigned} : Value{});
}

Value StackState::pop() {
  Value value = load(registers_[stack_register_]);
  set(stack_register_, registers_[stack_register_].plus(4));
  return value;
}

void StackState::call(bool arm) {
  if (arm) {
    for (unsigned number : {0u, 1u, 2u, 3u, 12u}) registers_[number] = {};
    registers_[kLr] = {Value::kBehindCall};
  } else {
    for (unsigned number : {0u, 1u, 2u}) registers_[number] = {};
  }
}

bool StackState::join(const StackState& other) {
  bool lost = false;
  for (size_t number = 0; number < registers_.size(); ++number) {
    if (registers_[number] == other.registers_[number] || registers_[number].kind == Value::kUnknown) continue;
    registers_[number] = {};
    lost = true;
  }
  size_t gone = std::erase_if(
      slots_, [&](const auto& slot) { return std::ranges::find(other.slots_, slot) == other.slots_.end(); });
  return lost || gone != 0;
}

bool StackState::saved(unsigned number) const {
  const Value entry{Value::kEntry, static_cast<uint8_t>(number), 0};
  return std::ranges::any_of(slots_, [&](const auto& slot) { return slot.second == entry; });
}

// Where the caller's value is. lr is about to be overwritten by the call itself: it counts only where nothing is saved.
int16_t StackState::place_of(unsigned number) const {
  const Value entry{Value::kEntry, static_cast<uint8_t>(number), 0};
  bool in_register = number != kReturn && registers_[number] == entry;
  if (in_register && (number != kLr || !saved(kLr))) return kPlaceUnchanged;
  for (const auto& [place, value] : slots_) {
    const bool near = place.kind == Value::kFrame && place.offset < 0 && place.offset > kPlaceLost;
    if (value == entry && near) return static_cast<int16_t>(place.offset);
  }
  return kPlaceLost;
}

// On i386 a frame register comes first: functions that take their arguments off the stack themselves make esp
// uncertain.
std::optional<FrameRule> StackState::rule(bool arm) const {
  FrameRule rule = {};
  rule.flags = kRuleDerived;
  const std::pair<FrameBase, unsigned> arm_bases[] = {{kFrameSp, kSp}, {kFrameR7, kR7}, {kFrameR11, kR11}};
  const std::pair<FrameBase, unsigned> i386_bases[] = {{kFrameEbp, kEbp}, {kFrameSp, kEsp}};
  for (auto [base, number] : arm ? std::span<const std::pair<FrameBase, unsigned>>(arm_bases) : i386_bases) {
    if (registers_[number].kind != Value::kFrame) continue;
    rule.base = base;
    rule.cfa = negative(registers_[number].offset);
    break;
  }
  if (rule.base == kFrameEnd) return arm ? std::nullopt : realigned_rule();
  rule.return_place = place_of(arm ? kLr : kReturn);
  rule.frame_place = place_of(arm ? kR7 : kEbp);
  rule.r11_place = arm ? place_of(kR11) : kPlaceUnchanged;
  if (rule.return_place == kPlaceLost) return std::nullopt;
  return rule;
}

// ebp points at the caller's, and the CFA is kept at a distance from it.
std::optional<FrameRule> StackState::realigned_rule() const {
  const Value& ebp = registers_[kEbp];
  const Value callers{Value::kEntry, kEbp, 0};
  if (ebp.kind != Value::kRealigned || load(ebp) != callers || place_of(kReturn) != -4) return std::nullopt;
  for (const auto& [place, value] : slots_) {
    if (place.kind != Value::kRealigned || value != frame_value(0)) continue;
    return FrameRule{kFrameEbpWord, kRuleDerived, -4, place.offset - ebp.offset, 0, 0};
  }
  return std::nullopt;
}

std::optional<bool> StackState::agrees(const FrameRule& rule, bool arm) const {
  std::optional<FrameRule> own = this->rule(arm);
  if (!own || rule.base >= kFrameSignal || rule.base == kFrameEnd) return std::nullopt;
  if (own->base == kFrameEbpWord || rule.base == kFrameEbpWord) return own->base == rule.base && own->cfa == rule.cfa;
  unsigned number = rule.base == kFrameSp    ? stack_register_
                    : rule.base == kFrameR7  ? kR7
                    : rule.base == kFrameR11 ? kR11
                                             : kEbp;
  // A register that was saved and still holds its value is right both ways.
  auto holds = [&](unsigned saved, int16_t place) {
    const Value entry{Value::kEntry, static_cast<uint8_t>(saved), 0};
    if (place == kPlaceLost || place_of(saved) == kPlaceLost) return true;
    return (place == kPlaceUnchanged ? registers_[saved] : load(frame_value(place))) == entry;
  };
  return registers_[number] == frame_value(negative(rule.cfa)) && holds(arm ? kLr : kReturn, rule.return_place) &&
         holds(arm ? kR7 : kEbp, rule.frame_place) && (!arm || holds(kR11, rule.r11_place));
}

}  // namespace quarl::frames
