// SPDX-License-Identifier: Apache-2.0
#include "frames/rules.h"

#include <string.h>

#include "frames/loader.h"
#include "frames/modules.h"
#include "frames/table_files.h"
#include "platform/code_map.h"
#include "platform/system.h"
#include "unwind.h"

namespace quarl {

constinit bool frames_in_use = false;
constinit AddressRange own_code{};
constinit AddressRange loader_code{};
constinit detail::RuleCache detail::rule_cache{};

namespace {

constexpr FrameRule kByPointerRule = {kFrameByPointer, 0, 0, 0, 0, 0};
constexpr FrameRule kOwnRule = {kFrameOwn, 0, 0, 0, 0, 0};
constexpr FrameRule kEndRule = {kFrameEnd, 0, 0, 0, 0, 0};
constexpr FrameRule kSystemCallRule = {kFrameSystemCall, 0, 0, 0, 0, 0};
constexpr FrameRule kSignalRule = {kFrameSignal, 0, 0, 0, 0, 0};
constexpr FrameRule kRtSignalRule = {kFrameRtSignal, 0, 0, 0, 0, 0};

using Predicate = bool (*)(uint32_t address);
constinit Predicate ends_trace = nullptr;
constinit ModuleList startup{};  // what the process began with; its tables may be taken away, and nothing else changes

// Raised by each walk that begins in a loader at work. What was looked up before counts no more.
constinit uint32_t generation = 0;

void raise_generation() {
  const uint32_t now = __atomic_add_fetch(&generation, 1, __ATOMIC_ACQ_REL);
  __atomic_store_n(&detail::rule_cache.generation_mark, now * 0xC2B2AE35U, __ATOMIC_RELEASE);
}

AddressRange code_of(const Module& module) {
  return {module.low, module.high - module.low};
}

// What came later, as it was at one generation. Whoever finds it out of date learns it anew, one at a time; a thread
// that comes meanwhile, and a handler that interrupts, goes without.
class LateModules {
 public:
  enum Answer : uint8_t { kFound, kNone, kUnknown };

  Answer find(uint32_t address, Module* found) {
    const uint32_t wanted = __atomic_load_n(&generation, __ATOMIC_ACQUIRE);
    if (__atomic_load_n(&known_, __ATOMIC_ACQUIRE) != wanted + 1 && !learn(wanted)) return kUnknown;
    const uint32_t before = __atomic_load_n(&changes_, __ATOMIC_ACQUIRE);
    const Module* module = modules_.find(address);
    if (module != nullptr) *found = *module;
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
    if (before % 2 != 0 || __atomic_load_n(&changes_, __ATOMIC_RELAXED) != before) return kUnknown;
    return module != nullptr ? kFound : kNone;
  }

  // Also when it cannot be told now.
  bool may_overlap(const AddressRange& range) {
    const uint32_t before = __atomic_load_n(&changes_, __ATOMIC_ACQUIRE);
    bool overlaps = before % 2 != 0;
    for (const Module& module : modules_) overlaps |= range.overlaps(code_of(module));
    __atomic_thread_fence(__ATOMIC_ACQUIRE);
    return overlaps || __atomic_load_n(&changes_, __ATOMIC_RELAXED) != before;
  }

  // Another thread of the parent may have been learning.
  void reset_in_child() {
    if (!learning_) return;
    modules_.clear();
    known_ = changes_ = 0;
    learning_ = false;
  }

 private:
  bool learn(uint32_t wanted) {
    if (__atomic_exchange_n(&learning_, true, __ATOMIC_ACQUIRE)) return false;
    const KeepErrno keep;
    __atomic_add_fetch(&changes_, 1, __ATOMIC_ACQ_REL);
    modules_.clear();
    learn_modules(sys::copy_memory, &startup, &modules_);
    __atomic_add_fetch(&changes_, 1, __ATOMIC_ACQ_REL);
    __atomic_store_n(&known_, wanted + 1, __ATOMIC_RELEASE);
    __atomic_store_n(&learning_, false, __ATOMIC_RELEASE);
    return true;
  }

  ModuleList modules_;
  uint32_t known_ = 0;    // the generation more one; 0: nothing was learnt yet
  uint32_t changes_ = 0;  // odd while the list changes
  bool learning_ = false;
};
constinit LateModules late{};

bool copy_present(const void* from, void* to, size_t size) {
  memcpy(to, from, size);
  return true;
}

// The 8 bytes at an address, when they are code that stays.
bool read_code(uint32_t address, uint8_t* out) {
  constexpr uint32_t kBytes = 8;
  if (!is_startup_code(address) || !is_startup_code(address + kBytes - 1)) return false;
  memcpy(out, pointer_to(address), kBytes);
  return true;
}

const FrameRule* rule_of_known_code(uint32_t pc) {
  uint8_t code[8];
  if (!read_code(pc & ~frame::kThumbBit, code)) return nullptr;
  switch (frame::known_code(pc, code)) {
    case KnownCode::kSignalReturn:
      return &kSignalRule;
    case KnownCode::kRtSignalReturn:
      return &kRtSignalRule;
    case KnownCode::kSystemCall:
      return &kSystemCallRule;
    case KnownCode::kNone:
      break;
  }
  return nullptr;
}

// What is known of an address.
struct Answer {
  const FrameRule* rule;  // null: no code
  bool lasting;           // until the next generation
};

// What a handler returns to is entered without a call: before it lies some other function.
Answer in_module(const Module& module, uint32_t pc, uint32_t address) {
  const FrameTable* table = __atomic_load_n(&module.table, __ATOMIC_RELAXED);
  const FrameRule* rule = rule_of_known_code(pc);
  if (rule == nullptr && table != nullptr) rule = table->find(address - module.bias);
  return {rule != nullptr ? rule : &kByPointerRule, true};
}

Answer outside_modules(uint32_t pc, bool lasting) {
  if (code_kind(pc) == CodeKind::kNone) return {nullptr, false};
  const FrameRule* rule = rule_of_known_code(pc);
  return {rule != nullptr ? rule : &kByPointerRule, lasting};
}

// `address` lies in the call, or is where a signal came.
Answer find_rule(uint32_t pc, uint32_t address) {
  if (own_code.holds(address)) return {&kOwnRule, true};
  if (ends_trace(pc)) return {&kEndRule, true};
  if (const Module* module = startup.find(address)) return in_module(*module, pc, address);
  if (is_startup_code(address) || loader_code.size == 0) return outside_modules(pc, true);
  Module found;
  const LateModules::Answer late_one = late.find(address, &found);
  if (late_one == LateModules::kFound) return in_module(found, pc, address);
  return outside_modules(pc, late_one == LateModules::kNone);
}

AddressRange code_around(const void* address) {
  const Module* module = startup.find(address_of(address));
  return module != nullptr ? code_of(*module) : AddressRange{0, 0};
}

AddressRange code_of_loader() {
  for (const Module& module : startup) {
    if (module.bias == loader_bias()) return code_of(module);
  }
  return {0, 0};
}

}  // namespace

void learn_startup_frames(bool (*is_outermost)(uint32_t address)) {
  if (!settle_table_folder()) return;
  ends_trace = is_outermost;
  learn_modules(copy_present, nullptr, &startup);
  own_code = code_around(reinterpret_cast<const void*>(look_up_step));
  loader_code = code_of_loader();
  frames_in_use = true;
}

void note_loader_at_work() {
  if (loader_may_be_loading()) raise_generation();
}

// A live library is in nobody's way: where something else comes to lie, it has gone.
void forget_code_in(const AddressRange& range) {
  if (range.overlaps(tables_span())) {
    for (Module& module : startup) {
      if (module.table != nullptr && table_lies_in(*module.table, range)) {
        __atomic_store_n(&module.table, nullptr, __ATOMIC_RELAXED);
      }
    }
    forget_tables_in(range);
    raise_generation();
  }
  if (late.may_overlap(range)) raise_generation();
}

void settle_frames_in_child() {
  late.reset_in_child();
}

[[gnu::cold, gnu::noinline]] StepWord look_up_step(uint32_t pc, bool interrupted) {
  const uint32_t mark = __atomic_load_n(&detail::rule_cache.generation_mark, __ATOMIC_ACQUIRE);
  const Answer answer = find_rule(pc, (pc & ~frame::kThumbBit) - (interrupted ? 0 : 1));
  if (answer.rule == nullptr) return 0;
  const StepWord step = step_word(*answer.rule);
  if (answer.lasting && !interrupted) {
    detail::RuleSlot& slot = detail::rule_cache.slots[detail::slot_of(pc)];
    __atomic_store_n(&slot.step, step, __ATOMIC_RELAXED);
    __atomic_store_n(&slot.check, detail::check_word(pc, step, mark), __ATOMIC_RELAXED);
  }
  return step;
}

}  // namespace quarl
