// SPDX-License-Identifier: Apache-2.0
#include "frames/sources/cfi_rules.h"

#include <dwarf.h>
#include <elfutils/libdwfl.h>

#include <cstdlib>
#include <memory>

namespace quarl::frames {
namespace {

// Numbers of DWARF: i386 esp 4, ebp 5, the return address 8; ARM r0 to r15.
constexpr int kEbp = 5, kI386Return = 8;

struct Freed {
  void operator()(Dwarf_Frame* frame) const { std::free(frame); }
};

// A register plus a distance, as DW_OP_breg and DW_OP_bregx give it.
std::optional<std::pair<int, int64_t>> register_offset(const Dwarf_Op& op) {
  if (op.atom >= DW_OP_breg0 && op.atom <= DW_OP_breg31)
    return {{op.atom - DW_OP_breg0, static_cast<int64_t>(op.number)}};
  if (op.atom == DW_OP_bregx) return {{static_cast<int>(op.number), static_cast<int64_t>(op.number2)}};
  return std::nullopt;
}

}  // namespace

CfiRules::CfiRules(const ElfModule& module, Source source)
    : arm_(module.arm()),
      source_(source),
      cfi_(source == Source::kDebugFrame ? dwfl_module_dwarf_cfi(module.dwfl(), &bias_)
                                         : dwfl_module_eh_cfi(module.dwfl(), &bias_)) {}

std::optional<SourcedRule> CfiRules::rule(const CallSite& call) {
  Dwarf_Frame* found = nullptr;
  if (cfi_ == nullptr || dwarf_cfi_addrframe(cfi_, call.return_address - 1 - bias_, &found) != 0) return std::nullopt;
  std::unique_ptr<Dwarf_Frame, Freed> frame(found);
  Dwarf_Addr start = 0;
  bool signal = false;
  if (dwarf_frame_info(found, &start, nullptr, &signal) < 0 || signal) return std::nullopt;
  std::optional<FrameRule> rule = read(found);
  if (!rule) return std::nullopt;
  return SourcedRule{*rule, static_cast<uint32_t>(start + bias_)};
}

std::optional<FrameRule> CfiRules::read(Dwarf_Frame* frame) const {
  FrameRule rule = {};
  std::optional<int16_t> back = place(frame, arm_ ? int{StackState::kLr} : kI386Return);
  if (!back) return std::nullopt;
  // Without a return address the function is the outermost one, or one that never returns.
  if (*back == kPlaceLost) return rule;
  if (!canonical(frame, rule)) return std::nullopt;
  rule.return_place = *back;
  if (rule.base == kFrameEbpWord) return rule.return_place == -4 ? std::optional(rule) : std::nullopt;
  if (!arm_ && rule.return_place != -4) return std::nullopt;
  rule.frame_place = place(frame, arm_ ? int{StackState::kR7} : kEbp).value_or(kPlaceLost);
  if (arm_) rule.r11_place = place(frame, StackState::kR11).value_or(kPlaceLost);
  return rule;
}

// Where the caller's value of a register is; nothing when it is told by an expression.
std::optional<int16_t> CfiRules::place(Dwarf_Frame* frame, int reg) const {
  Dwarf_Op memory[3];
  Dwarf_Op* ops = nullptr;
  size_t count = 0;
  if (dwarf_frame_register(frame, reg, memory, &ops, &count) != 0) return std::nullopt;
  if (count == 0) return ops == nullptr ? kPlaceUnchanged : kPlaceLost;
  if (ops[0].atom != DW_OP_call_frame_cfa || count > 2) return std::nullopt;
  if (count == 1 || ops[1].atom != DW_OP_plus_uconst) return std::nullopt;
  auto distance = static_cast<int64_t>(ops[1].number);
  if (distance >= 0 || distance <= kPlaceLost) return std::nullopt;
  return static_cast<int16_t>(distance);
}

bool CfiRules::canonical(Dwarf_Frame* frame, FrameRule& rule) const {
  Dwarf_Op* ops = nullptr;
  size_t count = 0;
  if (dwarf_frame_cfa(frame, &ops, &count) != 0 || count == 0) return false;
  auto from = register_offset(ops[0]);
  if (!from || from->second < INT32_MIN || from->second > INT32_MAX) return false;
  auto [reg, offset] = *from;
  rule.cfa = static_cast<int32_t>(offset);
  bool word = count == 2 && ops[1].atom == DW_OP_deref;
  if (count > 1 && !word) return false;
  if (word) {
    // The frame of a realigned stack: its ebp points at the caller's.
    Dwarf_Op memory[3];
    Dwarf_Op* saved = nullptr;
    size_t saved_count = 0;
    if (arm_ || reg != kEbp || dwarf_frame_register(frame, kEbp, memory, &saved, &saved_count) != 0) return false;
    // An expression starts with the CFA on its stack.
    auto at = saved_count == 2 && saved[0].atom == DW_OP_call_frame_cfa ? register_offset(saved[1]) : std::nullopt;
    rule.base = kFrameEbpWord;
    return at && at->first == kEbp && at->second == 0;
  }
  if (reg == static_cast<int>(arm_ ? StackState::kSp : StackState::kEsp))
    rule.base = kFrameSp;
  else if (!arm_ && reg == kEbp)
    rule.base = kFrameEbp;
  else if (arm_ && reg == int{StackState::kR7})
    rule.base = kFrameR7;
  else if (arm_ && reg == int{StackState::kR11})
    rule.base = kFrameR11;
  return rule.base != kFrameEnd;
}

}  // namespace quarl::frames
