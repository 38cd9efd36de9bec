// SPDX-License-Identifier: Apache-2.0
// Thumb instructions of 16 bits.
#include <bit>

#include "frames/code/bits.h"
#include "frames/code/thumb_instruction.h"

namespace quarl::frames {
namespace {

constexpr unsigned kSp = StackState::kSp, kLr = StackState::kLr, kPc = 15;

}  // namespace

void ThumbInstruction::narrow_instruction() {
  unsigned low = bits(half_, 2, 0), next = bits(half_, 5, 3), high = bits(half_, 10, 8);
  switch (half_ >> 11) {
    case 0:
    case 1:
    case 2:
      return half_ == 0 ? effects_.forget(0) : narrow_shift(low, next);
    case 3:
      return narrow_add(low, next);
    case 4:
      return effects_.set(high, constant(static_cast<int32_t>(half_ & 0xFF)));
    case 5:
      return;  // cmp
    case 6:
      return effects_.add(high, high, static_cast<int32_t>(half_ & 0xFF));
    case 7:
      return effects_.add(high, high, -static_cast<int32_t>(half_ & 0xFF));
    case 8:
      return bit(half_, 10) ? high_registers() : narrow_processing(low);
    case 9:
      return effects_.load(high, {kPc, static_cast<int32_t>((half_ & 0xFF) * 4), true, false});
    case 10:
    case 11:
      return bits(half_, 11, 9) >= 3 ? effects_.forget(low) : void();
    case 12:
      return effects_.store(low, {next, static_cast<int32_t>(bits(half_, 10, 6) * 4), true, false});
    case 13:
      return effects_.load(low, {next, static_cast<int32_t>(bits(half_, 10, 6) * 4), true, false});
    case 14:
    case 16:
      return effects_.access({next, 0, true, false}, 0, false);
    case 15:
    case 17:
      return effects_.forget(low);
    case 18:
      return effects_.store(high, {kSp, static_cast<int32_t>((half_ & 0xFF) * 4), true, false});
    case 19:
      return effects_.load(high, {kSp, static_cast<int32_t>((half_ & 0xFF) * 4), true, false});
    case 20:
      return effects_.forget(high);
    case 21:
      return effects_.add(high, kSp, static_cast<int32_t>((half_ & 0xFF) * 4));
    case 22:
    case 23:
      return miscellaneous();
    case 24:
      return effects_.store_many(high, half_ & 0xFF, true, false, true);
    case 25:
      return effects_.load_many(high, half_ & 0xFF, true, false, !(half_ & 1u << high));
    case 26:
    case 27:
      return conditional_branch();
    case 28:
      return effects_.jump(Flow::kJump, pc_ + static_cast<uint32_t>(sign_extended(half_ << 1 & 0xFFF, 12)), true);
    default:
      return;
  }
}

void ThumbInstruction::narrow_shift(unsigned to, unsigned from) {
  bool moves = bits(half_, 15, 6) == 0;
  moves ? effects_.move(to, from) : effects_.forget(to);
}

void ThumbInstruction::narrow_add(unsigned to, unsigned from) {
  unsigned operand = bits(half_, 8, 6);
  bool subtract = bit(half_, 9);
  if (!bit(half_, 10)) return effects_.add_register(to, from, operand, subtract);
  effects_.add(to, from, subtract ? -static_cast<int32_t>(operand) : static_cast<int32_t>(operand));
}

void ThumbInstruction::narrow_processing(unsigned to) {
  unsigned operation = bits(half_, 9, 6);
  bool compares = operation == 8 || operation == 10 || operation == 11;
  if (!compares) effects_.forget(to);
}

void ThumbInstruction::high_registers() {
  unsigned to = (half_ & 7) | (half_ >> 4 & 8), from = bits(half_, 6, 3);
  switch (bits(half_, 9, 8)) {
    case 0:
      return effects_.add_register(to, to, from, false);
    case 1:
      return;
    case 2:
      return effects_.move(to, from);
    default:
      return bit(half_, 7) ? effects_.call_register() : effects_.jump_register(from);
  }
}

void ThumbInstruction::miscellaneous() {
  if ((half_ & 0xFF00) == 0xB000) {
    auto distance = static_cast<int32_t>((half_ & 0x7F) * 4);
    return effects_.add(kSp, kSp, bit(half_, 7) ? -distance : distance);
  }
  if ((half_ & 0xF500) == 0xB100) {  // cbz, cbnz
    return effects_.jump(Flow::kBranch, pc_ + (bit(half_, 9) << 6 | bits(half_, 7, 3) << 1), true);
  }
  if ((half_ & 0xFE00) == 0xB400)
    return effects_.store_many(kSp, (half_ & 0xFF) | bit(half_, 8) << kLr, false, true, true);
  if ((half_ & 0xFE00) == 0xBC00)
    return effects_.load_many(kSp, (half_ & 0xFF) | bit(half_, 8) << kPc, true, false, true);
  if ((half_ & 0xFF00) == 0xBF00) {
    // An IT block of up to four instructions: the lowest set bit of the mask ends it.
    if (half_ & 0xF) state_.conditional = static_cast<uint8_t>(5 - std::countr_zero(half_ & 0xF) - 1);
    return;
  }
  if ((half_ & 0xFF00) == 0xBE00) return effects_.stop();
  effects_.forget(half_ & 7);  // extensions and reversals
}

void ThumbInstruction::conditional_branch() {
  unsigned condition = bits(half_, 11, 8);
  if (condition == 14) return effects_.stop();
  if (condition == 15) return effects_.system_call();
  effects_.jump(Flow::kBranch, pc_ + static_cast<uint32_t>(sign_extended(half_ << 1 & 0x1FF, 9)), true);
}

}  // namespace quarl::frames
