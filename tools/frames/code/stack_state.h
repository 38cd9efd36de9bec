// SPDX-License-Identifier: Apache-2.0
// What is known, at one place of a function's code, of its registers and its frame: values as they were when the
// function was called, and distances from the canonical frame address (the CFA, the caller's sp).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "quarl/frames/table_format.h"

namespace quarl::frames {

// The smallest number is its own.
inline int32_t negative(int32_t number) {
  return static_cast<int32_t>(0 - static_cast<uint32_t>(number));
}

struct Value {
  enum Kind : uint8_t {
    kUnknown,
    kEntry,
    kFrame,
    kConstant,
    kRealigned,  // i386
    kBehindCall
  } kind = kUnknown;  // the last: lr as a call left it
  uint8_t reg = 0;    // kEntry: what this register held at the function's start
  int32_t offset =
      0;  // kFrame: CFA + offset; kRealigned: the same from where sp was rounded down to; kConstant: the number

  bool operator==(const Value&) const = default;
  bool on_stack() const { return kind == kFrame || kind == kRealigned; }
  Value plus(int32_t more) const;
};

inline Value frame_value(int32_t offset) {
  return {Value::kFrame, 0, offset};
}
inline Value constant(int32_t number) {
  return {Value::kConstant, 0, number};
}

// Registers by number: i386 as instructions number them (esp 4, ebp 5), ARM r0 to r15.
class StackState {
 public:
  static StackState at_function_start(bool arm);

  const Value& reg(unsigned number) const { return registers_[number]; }
  void set(unsigned number, Value value);
  void forget(unsigned number) { set(number, {}); }
  void store(Value address, Value what);
  Value load(Value address) const;
  void push(Value what);
  // sp is rounded down, by an unknown distance.
  void realign();
  Value pop();
  // What a call leaves of the registers.
  void call(bool arm);
  // Keeps what both know. True when something was lost.
  bool join(const StackState& other);

  // Whether the value that a register had at the function's start lies in the frame.
  bool saved(unsigned number) const;

  // The rule for a call made here; nothing when too little is known.
  std::optional<FrameRule> rule(bool arm) const;
  // Whether `rule`, from another source, says the same of this place. Nothing when this state knows too little.
  std::optional<bool> agrees(const FrameRule& rule, bool arm) const;

  uint8_t conditional = 0;  // Thumb: so many of the next instructions are of an IT block

  static constexpr unsigned kEsp = 4, kEbp = 5, kReturn = 8;  // i386; kReturn stands for the return address
  static constexpr unsigned kR7 = 7, kR11 = 11, kSp = 13, kLr = 14;

 private:
  int16_t place_of(unsigned number) const;
  std::optional<FrameRule> realigned_rule() const;

  std::array<Value, 16> registers_ = {};
  std::vector<std::pair<Value, Value>> slots_;  // of the frame: where each is, and what it holds
  uint8_t stack_register_ = kSp;
};

}  // namespace quarl::frames
