// SPDX-License-Identifier: Apache-2.0
#include "frames/code/arm_effects.h"

#include <bit>

namespace quarl::frames {
namespace {

constexpr unsigned kSp = StackState::kSp, kLr = StackState::kLr, kPc = 15;

}  // namespace

void ArmEffects::set(unsigned reg, Value value) {
  if (reg == kPc) return to_pc(value);
  state_.set(reg, value);
}

// A return when it is what the caller left in lr.
void ArmEffects::to_pc(const Value& value) {
  result.flow = value == Value{Value::kEntry, kLr, 0} ? Flow::kReturn : Flow::kJump;
}

void ArmEffects::move(unsigned to, unsigned from) {
  set(to, from == kPc ? Value{} : state_.reg(from));
  result.returns = to == kPc && from == kLr;
}

void ArmEffects::add(unsigned to, unsigned from, int32_t number) {
  set(to, from == kPc ? Value{} : state_.reg(from).plus(number));
}

void ArmEffects::add_register(unsigned to, unsigned from, unsigned other, bool subtract) {
  Value left = from == kPc ? Value{} : state_.reg(from), right = other == kPc ? Value{} : state_.reg(other);
  if (!subtract && left.kind == Value::kConstant) std::swap(left, right);
  if (right.kind != Value::kConstant) return set(to, {});
  auto number = static_cast<uint32_t>(right.offset);
  set(to, left.plus(static_cast<int32_t>(subtract ? 0 - number : number)));
}

Value ArmEffects::address(Place place) const {
  if (place.base == kPc) return {};
  return state_.reg(place.base).plus(place.index_first ? place.distance : 0);
}

void ArmEffects::write_back(Place place) {
  if (place.write_back && place.base != kPc) state_.set(place.base, state_.reg(place.base).plus(place.distance));
}

void ArmEffects::load(unsigned reg, Place place) {
  if (place.base == kPc) {
    uint32_t at = (pc_ & ~3u) + static_cast<uint32_t>(place.distance);
    result.literal = at;
    uint32_t distance = at - code_.address;
    bool near = distance + 4 <= code_.bytes.size();
    return set(reg, near ? constant(static_cast<int32_t>(code_.word(distance))) : Value{});
  }
  Value value = state_.load(address(place));
  write_back(place);
  set(reg, value);
  result.returns = reg == kPc && place.base == kSp && !place.index_first;
}

void ArmEffects::store(unsigned reg, Place place) {
  Value value = reg == kPc ? Value{} : state_.reg(reg), at = address(place);
  write_back(place);
  state_.store(at, value);
}

void ArmEffects::load_pair(unsigned reg, unsigned second, Place place) {
  if (place.base == kPc) {
    forget(reg);
    return forget(second);
  }
  Value at = address(place), low = state_.load(at), high = state_.load(at.plus(4));
  write_back(place);
  set(reg, low);
  set(second, high);
}

void ArmEffects::store_pair(unsigned reg, unsigned second, Place place) {
  Value at = address(place), low = state_.reg(reg), high = state_.reg(second);
  write_back(place);
  state_.store(at, low);
  state_.store(at.plus(4), high);
}

void ArmEffects::access(Place place, uint32_t size, bool stores) {
  Value at = address(place);
  write_back(place);
  for (uint32_t word = 0; stores && word < size; word += 4) state_.store(at.plus(static_cast<int32_t>(word)), {});
}

void ArmEffects::load_many(unsigned base, uint32_t registers, bool increment, bool before, bool write_back) {
  int32_t size = 4 * std::popcount(registers);
  Value from = base == kPc ? Value{} : state_.reg(base);
  int32_t at = increment ? (before ? 4 : 0) : (before ? -size : 4 - size);
  std::array<Value, 16> loaded;
  for (unsigned reg = 0; reg < 16; ++reg) {
    if (!(registers & 1u << reg)) continue;
    loaded[reg] = state_.load(from.plus(at));
    at += 4;
  }
  if (write_back && base != kPc) state_.set(base, from.plus(increment ? size : -size));
  for (unsigned reg = 0; reg < 16; ++reg) {
    if (registers & 1u << reg) set(reg, loaded[reg]);
  }
  result.returns = base == kSp && (registers & 1u << kPc);
}

void ArmEffects::store_many(unsigned base, uint32_t registers, bool increment, bool before, bool write_back) {
  int32_t size = 4 * std::popcount(registers);
  Value from = base == kPc ? Value{} : state_.reg(base);
  int32_t at = increment ? (before ? 4 : 0) : (before ? -size : 4 - size);
  std::array<Value, 16> values;
  for (unsigned reg = 0; reg < 15; ++reg) values[reg] = state_.reg(reg);
  // First the stack grows: what lies below it does not last.
  if (write_back && base != kPc) state_.set(base, from.plus(increment ? size : -size));
  for (unsigned reg = 0; reg < 16; ++reg) {
    if (!(registers & 1u << reg)) continue;
    state_.store(from.plus(at), values[reg]);
    at += 4;
  }
}

void ArmEffects::jump(Flow flow, uint32_t target, bool thumb) {
  result.flow = flow;
  result.target = target;
  result.thumb = thumb;
  if (flow == Flow::kCall) state_.call(true);
}

void ArmEffects::jump_register(unsigned reg) {
  if (reg == kPc) return jump(Flow::kJump, pc_ & ~3u, false);  // bx pc: on in ARM code
  to_pc(state_.reg(reg));
  result.returns = reg == kLr;
}

void ArmEffects::call_register() {
  result.flow = Flow::kCall;
  state_.call(true);
}

void ArmEffects::system_call() {
  result.flow = Flow::kSystemCall;
  state_.forget(0);
}

}  // namespace quarl::frames
