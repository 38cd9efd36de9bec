// SPDX-License-Identifier: Apache-2.0
// ARM instructions of 32 bits.
#include <bit>

#include "frames/code/arm_effects.h"
#include "frames/code/bits.h"

namespace quarl::frames {
namespace {

constexpr unsigned kPc = 15;

int32_t branch_distance(uint32_t word) {
  return static_cast<int32_t>(word << 8) >> 6;
}

class ArmInstruction {
 public:
  ArmInstruction(const CodeAt& code, StackState& state)
      : word_(code.word(0)), pc_(code.address + 8), effects_(code, pc_, state) {}

  Step step() {
    effects_.result.size = 4;
    if (word_ >> 28 == 0xF) {
      unconditional();
    } else {
      switch (bits(word_, 27, 25)) {
        case 0:
          bit(word_, 4) && bit(word_, 7) ? multiply_or_extra() : processing();
          break;
        case 1:
          processing();
          break;
        case 2:
          transfer(bits(word_, 11, 0));
          break;
        case 3:
          bit(word_, 4) ? media() : transfer({});
          break;
        case 4:
          many();
          break;
        case 5:
          branch();
          break;
        case 6:
          coprocessor_transfer();
          break;
        case 7:
          bit(word_, 24) ? effects_.system_call() : coprocessor();
          break;
        default:
          break;
      }
    }
    return effects_.result;
  }

 private:
  unsigned rn() const { return bits(word_, 19, 16); }
  unsigned rd() const { return bits(word_, 15, 12); }
  unsigned rm() const { return bits(word_, 3, 0); }

  void unconditional() {
    if (bits(word_, 27, 25) == 5) {
      effects_.jump(Flow::kCall, pc_ + static_cast<uint32_t>(branch_distance(word_)) + (bit(word_, 24) ? 2 : 0), true);
    } else if (bits(word_, 27, 25) == 6 && bits(word_, 27, 20) != 0xC4) {
      coprocessor_transfer();
    }
  }

  static int32_t rotated(uint32_t word) {
    return static_cast<int32_t>(std::rotr(word & 0xFF, static_cast<int>(bits(word, 11, 8) * 2)));
  }

  void processing() {
    unsigned operation = bits(word_, 24, 21);
    bool immediate = bit(word_, 25), flags = bit(word_, 20);
    if (operation >= 8 && operation <= 11 && !flags) return miscellaneous(immediate);
    if (operation >= 8 && operation <= 11) return;  // tst, teq, cmp, cmn
    if (immediate) {
      int32_t number = rotated(word_);
      if (operation == 4 || operation == 2) return effects_.add(rd(), rn(), operation == 4 ? number : negative(number));
      if (operation == 13) return effects_.set(rd(), constant(number));
      if (operation == 15) return effects_.set(rd(), constant(~number));
      return effects_.forget(rd());
    }
    bool plain = bits(word_, 11, 4) == 0;
    if (plain && operation == 13) return effects_.move(rd(), rm());
    if (plain && (operation == 4 || operation == 2)) return effects_.add_register(rd(), rn(), rm(), operation == 2);
    effects_.forget(rd());
  }

  void miscellaneous(bool immediate) {
    unsigned operation = bits(word_, 22, 21), low = bits(word_, 7, 4);
    if (immediate) {
      uint32_t number = bits(word_, 19, 16) << 12 | bits(word_, 11, 0);
      if (operation == 0) effects_.set(rd(), constant(static_cast<int32_t>(number)));  // movw
      if (operation == 2) effects_.forget(rd());                                       // movt
      return;
    }
    if (operation == 1 && low == 1) return effects_.jump_register(rm());
    if (operation == 1 && low == 3) return effects_.call_register();
    if (low == 7) return effects_.stop();
    if (operation == 3 && low == 1) return effects_.forget(rd());   // clz
    if (low == 0 && !bit(word_, 21)) return effects_.forget(rd());  // mrs
    if (low == 5) return effects_.forget(rd());
    if (low >= 8) {
      effects_.forget(rn());
      effects_.forget(rd());
    }
  }

  ArmEffects::Place place(int32_t distance) const {
    bool first = bit(word_, 24);
    return {rn(), bit(word_, 23) ? distance : -distance, first, !first || bit(word_, 21)};
  }

  void multiply_or_extra() {
    unsigned kind = bits(word_, 6, 5);
    if (kind == 0) {
      if (!bit(word_, 24)) {
        effects_.forget(rn());
        if (bit(word_, 23) || bit(word_, 22)) effects_.forget(rd());
      } else {
        effects_.forget(rd());  // swp, ldrex, strex
      }
      return;
    }
    bool immediate = bit(word_, 22);
    auto distance = static_cast<int32_t>(bits(word_, 11, 8) << 4 | bits(word_, 3, 0));
    if (!immediate) return unknown_place(bit(word_, 20) || kind == 2, kind == 2);
    ArmEffects::Place at = place(distance);
    if (bit(word_, 20)) {
      effects_.access(at, 4, false);
      effects_.forget(rd());
    } else if (kind == 1) {
      effects_.access(at, 4, true);
    } else if (kind == 2) {
      effects_.load_pair(rd(), (rd() + 1) & 15, at);
    } else {
      effects_.store_pair(rd(), (rd() + 1) & 15, at);
    }
  }

  // With a register as the distance.
  void unknown_place(bool loads, bool pair) {
    bool written = !bit(word_, 24) || bit(word_, 21);
    if (written) effects_.forget(rn());
    if (!loads) return;
    if (rd() == kPc) return effects_.set(kPc, {});
    effects_.forget(rd());
    if (pair) effects_.forget((rd() + 1) & 15);
  }

  void transfer(std::optional<uint32_t> distance) {
    bool loads = bit(word_, 20), byte = bit(word_, 22);
    if (!distance) return unknown_place(loads, false);
    ArmEffects::Place at = place(static_cast<int32_t>(*distance));
    if (byte) {
      effects_.access(at, 4, !loads);
      if (loads) effects_.forget(rd());
    } else if (loads) {
      effects_.load(rd(), at);
    } else {
      effects_.store(rd(), at);
    }
  }

  void media() {
    if (bits(word_, 27, 20) == 0x7F && bits(word_, 7, 4) == 0xF) return effects_.stop();
    effects_.forget(rd());
    // Multiplications, and sums of differences, name their result there.
    if (bits(word_, 24, 23) == 2) effects_.forget(rn());
  }

  void many() {
    bool increment = bit(word_, 23), before = bit(word_, 24), write_back = bit(word_, 21);
    if (bit(word_, 22) && !bit(word_, 20)) return;  // registers of another mode
    if (bit(word_, 20))
      effects_.load_many(rn(), bits(word_, 15, 0), increment, before, write_back);
    else
      effects_.store_many(rn(), bits(word_, 15, 0), increment, before, write_back);
  }

  void branch() {
    uint32_t target = pc_ + static_cast<uint32_t>(branch_distance(word_));
    bool always = word_ >> 28 == 0xE;
    effects_.jump(bit(word_, 24) ? Flow::kCall : always ? Flow::kJump : Flow::kBranch, target, false);
  }

  // vpush, vpop, vldm, vstm, vldr, vstr and others of their shape; or two registers to or from a coprocessor.
  void coprocessor_transfer() {
    if (bits(word_, 24, 21) == 2) {
      if (!bit(word_, 20)) return;
      effects_.forget(rd());
      return effects_.forget(rn());
    }
    auto size = static_cast<int32_t>(bits(word_, 7, 0) * 4);
    bool first = bit(word_, 24), written = bit(word_, 21);
    bool several = !first || written;
    effects_.access({rn(), bit(word_, 23) ? size : -size, first, written}, several ? static_cast<uint32_t>(size) : 8,
                    !bit(word_, 20));
  }

  void coprocessor() {
    bool to_core = bit(word_, 4) && bit(word_, 20);
    if (to_core && rd() != kPc) effects_.forget(rd());
  }

  uint32_t word_, pc_;
  ArmEffects effects_;
};

}  // namespace

Step step_arm(const CodeAt& code, StackState& state) {
  if (code.bytes.size() < 4) return {};
  bool always = code.word(0) >> 28 >= 0xE;
  if (always) return ArmInstruction(code, state).step();
  StackState before = state;
  Step step = ArmInstruction(code, state).step();
  step.conditional = true;
  if (step.flow == Flow::kNext || step.flow == Flow::kSystemCall) state.join(before);
  // Behind a return that was not taken everything is as it was.
  if (step.flow == Flow::kStop) step.flow = Flow::kNext;
  return step;
}

}  // namespace quarl::frames
