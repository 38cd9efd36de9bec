// Thumb instructions, of 16 and of 32 bits.
#include <bit>

#include "frames/code/arm_effects.h"

namespace quarl::frames {
namespace {

constexpr unsigned kSp = StackState::kSp, kLr = StackState::kLr, kPc = 15;

uint32_t bits(uint32_t word, unsigned high, unsigned low) {
  return word >> low & ((2u << (high - low)) - 1);
}
bool bit(uint32_t word, unsigned number) {
  return word >> number & 1;
}
int32_t sign_extended(uint32_t value, unsigned width) {
  return static_cast<int32_t>(value << (32 - width)) >> (32 - width);
}

// The immediate operands of data processing: a byte repeated, or one moved.
int32_t expanded(uint32_t coded) {
  uint32_t byte = coded & 0xFF;
  switch (coded >> 8 & 0xF) {
    case 0:
      return static_cast<int32_t>(byte);
    case 1:
      return static_cast<int32_t>(byte | byte << 16);
    case 2:
      return static_cast<int32_t>(byte << 8 | byte << 24);
    case 3:
      return static_cast<int32_t>(byte * 0x01010101u);
    default:
      return static_cast<int32_t>(std::rotr(byte | 0x80, static_cast<int>(coded >> 7)));
  }
}

class ThumbInstruction {
 public:
  ThumbInstruction(const CodeAt& code, StackState& state)
      : half_(code.half(0)),
        second_(code.half(2)),
        pc_(code.address + 4),
        state_(state),
        effects_(code, pc_, true, state) {}

  Step step() {
    bool wide = half_ >= 0xE800;
    effects_.result.size = wide ? 4 : 2;
    wide ? wide_instruction() : narrow_instruction();
    return effects_.result;
  }

 private:
  using Place = ArmEffects::Place;

  void narrow_instruction() {
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

  void narrow_shift(unsigned to, unsigned from) {
    bool moves = bits(half_, 15, 6) == 0;
    moves ? effects_.move(to, from) : effects_.forget(to);
  }

  void narrow_add(unsigned to, unsigned from) {
    unsigned operand = bits(half_, 8, 6);
    bool subtract = bit(half_, 9);
    if (!bit(half_, 10)) return effects_.add_register(to, from, operand, subtract);
    effects_.add(to, from, subtract ? -static_cast<int32_t>(operand) : static_cast<int32_t>(operand));
  }

  void narrow_processing(unsigned to) {
    unsigned operation = bits(half_, 9, 6);
    bool compares = operation == 8 || operation == 10 || operation == 11;
    if (!compares) effects_.forget(to);
  }

  void high_registers() {
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

  void miscellaneous() {
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

  void conditional_branch() {
    unsigned condition = bits(half_, 11, 8);
    if (condition == 14) return effects_.stop();
    if (condition == 15) return effects_.system_call();
    effects_.jump(Flow::kBranch, pc_ + static_cast<uint32_t>(sign_extended(half_ << 1 & 0x1FF, 9)), true);
  }

  unsigned rn() const { return half_ & 0xF; }
  unsigned rt() const { return second_ >> 12; }
  unsigned rd() const { return second_ >> 8 & 0xF; }

  void wide_instruction() {
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

  void wide_many() {
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
  void wide_pair() {
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

  void wide_shifted() {
    unsigned operation = bits(half_, 8, 5), rm = second_ & 0xF;
    bool plain = (second_ & 0x70F0) == 0, flags = bit(half_, 4);
    bool compares = flags && rd() == kPc && (operation == 0 || operation == 4 || operation == 8 || operation == 13);
    if (compares) return;
    if (plain && operation == 2 && rn() == kPc) return effects_.move(rd(), rm);
    if (plain && (operation == 8 || operation == 13)) return effects_.add_register(rd(), rn(), rm, operation == 13);
    effects_.forget(rd());
  }

  void modified_immediate() {
    unsigned operation = bits(half_, 8, 5);
    int32_t number = expanded(bit(half_, 10) << 11 | bits(second_, 14, 12) << 8 | (second_ & 0xFF));
    bool compares =
        bit(half_, 4) && rd() == kPc && (operation == 0 || operation == 4 || operation == 8 || operation == 13);
    if (compares) return;
    if (operation == 8 || operation == 13) return effects_.add(rd(), rn(), operation == 8 ? number : negative(number));
    if (rn() == kPc && operation == 2) return effects_.set(rd(), constant(number));
    if (rn() == kPc && operation == 3) return effects_.set(rd(), constant(~number));
    effects_.forget(rd());
  }

  void plain_immediate() {
    unsigned operation = bits(half_, 8, 4);
    uint32_t twelve = bit(half_, 10) << 11 | bits(second_, 14, 12) << 8 | (second_ & 0xFF);
    if (operation == 0) return effects_.add(rd(), rn(), static_cast<int32_t>(twelve));
    if (operation == 10) return effects_.add(rd(), rn(), -static_cast<int32_t>(twelve));
    if (operation == 4) return effects_.set(rd(), constant(static_cast<int32_t>(rn() << 12 | twelve)));
    effects_.forget(rd());
  }

  void wide_branch() {
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
  std::optional<Place> place() const {
    if (bit(half_, 7)) return Place{rn(), static_cast<int32_t>(second_ & 0xFFF), true, false};
    if (!(second_ & 0x800)) return std::nullopt;
    auto distance = static_cast<int32_t>(second_ & 0xFF);
    return Place{rn(), bit(second_, 9) ? distance : -distance, bit(second_, 10), bit(second_, 8)};
  }

  void wide_store() {
    std::optional<Place> at = place();
    if (!at) return;
    bool word = bits(half_, 6, 5) == 2;
    word ? effects_.store(rt(), *at) : effects_.access(*at, 4, true);
  }

  void wide_load() {
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

  void coprocessor() {
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

  uint32_t half_, second_, pc_;
  StackState& state_;
  ArmEffects effects_;
};

}  // namespace

Step step_thumb(const CodeAt& code, StackState& state) {
  size_t size = code.half(0) >= 0xE800 ? 4 : 2;
  if (code.bytes.size() < size) return {};
  bool conditional = state.conditional > 0;
  if (!conditional) return ThumbInstruction(code, state).step();
  --state.conditional;
  StackState before = state;
  Step step = ThumbInstruction(code, state).step();
  step.conditional = true;
  if (step.flow == Flow::kJump && step.target) step.flow = Flow::kBranch;
  if (step.flow == Flow::kNext || step.flow == Flow::kSystemCall) state.join(before);
  if (step.flow == Flow::kStop) step.flow = Flow::kNext;
  state.conditional = before.conditional;
  return step;
}

}  // namespace quarl::frames
