// SPDX-License-Identifier: Apache-2.0
#include "frames/sources/exidx_code.h"

#include <bit>

namespace quarl::frames {
namespace {

constexpr unsigned kR7 = 7, kR11 = 11, kSp = 13, kLr = 14, kPc = 15;
constexpr int64_t kFarthest = 1 << 28;

// The virtual stack pointer as a distance from a register, and where on the way registers were found.
class Machine {
 public:
  explicit Machine(std::span<const uint8_t> code) : code_(code) {}

  std::optional<FrameRule> run() {
    while (at_ < code_.size() && good_) {
      uint8_t byte = next();
      if (byte == 0xB0) break;
      execute(byte);
      good_ = good_ && distance_ > -kFarthest && distance_ < kFarthest;
    }
    return good_ ? rule() : std::nullopt;
  }

 private:
  uint8_t next() {
    if (at_ < code_.size()) return code_[at_++];
    good_ = false;
    return 0;
  }

  void execute(uint8_t byte) {
    unsigned low = byte & 7;
    if (byte < 0x40) return move((byte & 0x3F) * 4 + 4);
    if (byte < 0x80) return move(-((byte & 0x3F) * 4 + 4));
    if (byte < 0x90) return pop((byte & 0xFu) << 12 | static_cast<unsigned>(next()) << 4, true);
    if (byte < 0xA0) return start_from(byte & 0xF);
    if (byte < 0xB0) return pop(((1u << (low + 1)) - 1) << 4 | (byte & 8 ? 1u << kLr : 0), false);
    if (byte == 0xB1) return pop_low(next());
    if (byte == 0xB2) return move(0x204 + 4 * number());
    if (byte == 0xB3) return move(8 * ((next() & 0xF) + 1) + 4);
    if (byte >= 0xB8 && byte < 0xC0) return move(8 * (static_cast<int>(low) + 1) + 4);
    if (byte >= 0xC0 && byte < 0xC6) return move(8 * (static_cast<int>(low) + 1));
    if (byte == 0xC6 || byte == 0xC8 || byte == 0xC9) return move(8 * ((next() & 0xF) + 1));
    if (byte == 0xC7) return pop_low(next());
    if (byte >= 0xD0 && byte < 0xD8) return move(8 * (static_cast<int>(low) + 1));
    good_ = false;
  }

  void move(int by) { distance_ += by; }

  // An empty set refuses to unwind.
  void pop(unsigned registers, bool refuses) {
    if (registers == 0 && refuses) good_ = false;
    if (registers & 1u << kSp) good_ = false;
    for (unsigned number = 0; number < 16; ++number) {
      if (!(registers & 1u << number)) continue;
      if (number == kR7) found(r7_);
      if (number == kR11) found(r11_);
      if (number == kLr || (number == kPc && !return_)) found(return_);
      distance_ += 4;
    }
  }
  void found(std::optional<int64_t>& place) { place = distance_; }

  void pop_low(uint8_t registers) {
    if (registers == 0 || registers > 0xF) good_ = false;
    move(4 * std::popcount(registers));
  }

  // What was found before would lie at a distance from another register.
  void start_from(unsigned number) {
    if (r7_ || r11_ || return_) good_ = false;
    base_ = number == kR7 ? kFrameR7 : kFrameR11;
    distance_ = 0;
    if (number != kR7 && number != kR11) good_ = false;
  }

  int number() {
    uint32_t value = 0;
    for (unsigned shift = 0; shift < 28; shift += 7) {
      uint8_t byte = next();
      value |= (byte & 0x7Fu) << shift;
      if (!(byte & 0x80)) return static_cast<int>(value);
    }
    good_ = false;
    return 0;
  }

  int16_t place(const std::optional<int64_t>& found) {
    if (!found) return kPlaceUnchanged;
    int64_t from_cfa = *found - distance_;
    if (from_cfa >= 0 || from_cfa <= kPlaceLost) good_ = false;
    return static_cast<int16_t>(from_cfa);
  }

  std::optional<FrameRule> rule() {
    FrameRule rule = {};
    rule.base = base_;
    rule.cfa = static_cast<int32_t>(distance_);
    rule.return_place = place(return_);
    rule.frame_place = place(r7_);
    rule.r11_place = place(r11_);
    return good_ ? std::optional(rule) : std::nullopt;
  }

  std::span<const uint8_t> code_;
  size_t at_ = 0;
  bool good_ = true;
  FrameBase base_ = kFrameSp;
  int64_t distance_ = 0;
  std::optional<int64_t> r7_, r11_, return_;
};

}  // namespace

std::optional<FrameRule> run_exidx(std::span<const uint8_t> instructions) {
  return Machine(instructions).run();
}

}  // namespace quarl::frames
