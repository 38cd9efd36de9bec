// SPDX-License-Identifier: Apache-2.0
// Thumb instructions of 32 bits.
#include "frames/code/bits.h"
#include "frames/code/thumb_instruction.h"

namespace quarl::frames {
namespace {

constexpr unsigned kPc = 15;

}  // namespace

void ThumbInstruction::wide_instruction() {
  unsigned first = half_ >> 11, kind = bits(half_, 10, 4);
  if (first == 0x1D) {
    if ((kind & 0x64) == 0) return wide_many();
    if ((kind & 0x64) == 4) return wide_pair();
    if ((kind & 0x60) == 0x20) return wide_shifted();
    return coprocessor();
  }
  if (first == 0x1E) {
    if (second_ & 0x8000) return wide_branch();
    return bit(half_, 9) ? plain_immediate() : modified_immediate();
  }
  if ((kind & 0x71) == 0) return wide_store();
  if ((kind & 0x61) == 1) return wide_load();
  if ((kind & 0x71) == 0x10) return;  // vectors to and from memory: their addresses are in other registers
  if ((kind & 0x40) == 0x40) return coprocessor();
  effects_.forget(rd());
  if (bits(half_, 8, 7) == 3) effects_.forget(rt());  // results of 64 bits
}

void ThumbInstruction::wide_many() {
  bool load = bit(half_, 4), write_back = bit(half_, 5);
  unsigned mode = bits(half_, 8, 7);
  if (mode == 0 || mode == 3) return;
  bool increment = mode == 1, before = mode == 2;
  if (load)
    effects_.load_many(rn(), second_, increment, before, write_back);
  else
    effects_.store_many(rn(), second_, increment, before, write_back);
}

// ldrd, strd; exclusive access; table branches.
void ThumbInstruction::wide_pair() {
  bool first = bit(half_, 8), up = bit(half_, 7), written = bit(half_, 5), load = bit(half_, 4);
  if (!first && !written) {
    if ((half_ & 0xFFF0) == 0xE8D0 && (second_ & 0xFFE0) == 0xF000) return effects_.set(kPc, {});
    if (load)
      effects_.forget(rt());
    else if (rd() < 13)
      effects_.forget(rd());
    if (!load) effects_.forget(second_ & 0xF);
    return;
  }
  auto distance = static_cast<int32_t>((second_ & 0xFF) * 4);
  Place at{rn(), up ? distance : -distance, first, written};
  if (load)
    effects_.load_pair(rt(), rd(), at);
  else
    effects_.store_pair(rt(), rd(), at);
}

void ThumbInstruction::wide_shifted() {
  unsigned operation = bits(half_, 8, 5), rm = second_ & 0xF;
  bool plain = (second_ & 0x70F0) == 0, flags = bit(half_, 4);
  bool compares = flags && rd() == kPc && (operation == 0 || operation == 4 || operation == 8 || operation == 13);
  if (compares) return;
  if (plain && operation == 2 && rn() == kPc) return effects_.move(rd(), rm);
  if (plain && (operation == 8 || operation == 13)) return effects_.add_register(rd(), rn(), rm, operation == 13);
  effects_.forget(rd());
}

void ThumbInstruction::modified_immediate() {
  unsigned operation = bits(half_, 8, 5);
  int32_t number = thumb_immediate(half_, second_);
  bool compares =
      bit(half_, 4) && rd() == kPc && (operation == 0 || operation == 4 || operation == 8 || operation == 13);
  if (compares) return;
  if (operation == 8 || operation == 13) return effects_.add(rd(), rn(), operation == 8 ? number : negative(number));
  if (rn() == kPc && operation == 2) return effects_.set(rd(), constant(number));
  if (rn() == kPc && operation == 3) return effects_.set(rd(), constant(~number));
  effects_.forget(rd());
}

void ThumbInstruction::plain_immediate() {
  unsigned operation = bits(half_, 8, 4);
  uint32_t twelve = bit(half_, 10) << 11 | bits(second_, 14, 12) << 8 | (second_ & 0xFF);
  if (operation == 0) return effects_.add(rd(), rn(), static_cast<int32_t>(twelve));
  if (operation == 10) return effects_.add(rd(), rn(), -static_cast<int32_t>(twelve));
  if (operation == 4) return effects_.set(rd(), constant(static_cast<int32_t>(rn() << 12 | twelve)));
  effects_.forget(rd());
}

void ThumbInstruction::wide_branch() {
  uint32_t sign = bit(half_, 10), j1 = bit(second_, 13), j2 = bit(second_, 11);
  uint32_t near = (second_ & 0x7FF) << 1;
  uint32_t far = sign << 24 | (j1 ^ sign ^ 1) << 23 | (j2 ^ sign ^ 1) << 22 | (half_ & 0x3FF) << 12 | near;
  auto target = pc_ + static_cast<uint32_t>(sign_extended(far, 25));
  if (bit(second_, 14)) {
    bool thumb = bit(second_, 12);
    return effects_.jump(Flow::kCall, thumb ? target : target & ~3u, thumb);
  }
  if (bit(second_, 12)) return effects_.jump(Flow::kJump, target, true);
  if (bits(half_, 9, 7) != 7) {
    uint32_t conditional = sign << 20 | j2 << 19 | j1 << 18 | (half_ & 0x3F) << 12 | near;
    return effects_.jump(Flow::kBranch, pc_ + static_cast<uint32_t>(sign_extended(conditional, 21)), true);
  }
  if ((half_ & 0xFFF0) == 0xF7F0) return effects_.stop();
  bool reads_status = (half_ & 0xFFE0) == 0xF3E0;
  if (reads_status) effects_.forget(rd());
}

// Where a load or store of one register goes; nothing when a register is the distance.
std::optional<ArmEffects::Place> ThumbInstruction::place() const {
  if (bit(half_, 7)) return Place{rn(), static_cast<int32_t>(second_ & 0xFFF), true, false};
  if (!(second_ & 0x800)) return std::nullopt;
  auto distance = static_cast<int32_t>(second_ & 0xFF);
  return Place{rn(), bit(second_, 9) ? distance : -distance, bit(second_, 10), bit(second_, 8)};
}

void ThumbInstruction::wide_store() {
  std::optional<Place> at = place();
  if (!at) return;
  bool word = bits(half_, 6, 5) == 2;
  word ? effects_.store(rt(), *at) : effects_.access(*at, 4, true);
}

void ThumbInstruction::wide_load() {
  bool word = bits(half_, 6, 5) == 2;
  if (rn() == kPc) {
    auto distance = static_cast<int32_t>(second_ & 0xFFF);
    Place literal{kPc, bit(half_, 7) ? distance : -distance, true, false};
    return word ? effects_.load(rt(), literal) : rt() == kPc ? void() : effects_.forget(rt());
  }
  std::optional<Place> at = place();
  if (word && at) return effects_.load(rt(), *at);
  if (at) effects_.access(*at, 4, false);
  bool preloads = !word && rt() == kPc;
  if (!preloads) effects_.forget(rt());
}

void ThumbInstruction::coprocessor() {
  unsigned kind = bits(half_, 9, 4);
  if ((kind & 0x30) == 0x20 || (kind & 0x30) == 0x30) {
    bool to_core = (kind & 0x30) == 0x20 && bit(half_, 4) && bit(second_, 4);
    if (to_core && rt() != kPc) effects_.forget(rt());
    return;
  }
  if (bits(half_, 8, 5) == 2) {
    if (!bit(half_, 4)) return;
    effects_.forget(rt());
    return effects_.forget(rn());
  }
  auto size = static_cast<int32_t>((second_ & 0xFF) * 4);
  bool first = bit(half_, 8), written = bit(half_, 5), several = !first || written;
  effects_.access({rn(), bit(half_, 7) ? size : -size, first, written}, several ? static_cast<uint32_t>(size) : 8,
                  !bit(half_, 4));
}

}  // namespace quarl::frames
