// SPDX-License-Identifier: Apache-2.0
#include "frames/code/function_starts.h"

#include <algorithm>

#include "frames/code/step.h"
#include "frames/elf/exidx_index.h"
#include "frames/elf/pointers.h"

namespace quarl::frames {
namespace {

class Starts {
 public:
  explicit Starts(const ElfModule& module) : module_(module) {}

  // A pointer to a function: with the Thumb bit where it is Thumb code.
  void pointer(uint32_t value) {
    bool thumb = module_.arm() && (value & 1);
    if (thumb) value -= 1;
    if (module_.is_code(value)) starts_.push_back({value, thumb});
  }

  // A function of the instruction set that most functions so far are of, unless it looks like the other one.
  void of_unknown_set(uint32_t address) {
    auto thumb = static_cast<size_t>(std::ranges::count_if(starts_, &FunctionStart::thumb));
    if (looks_like_arm(address)) return pointer(address);
    pointer(thumb * 2 >= starts_.size() ? address | 1 : address);
  }

  // In a program that is not relocated any number may look like a pointer. Functions that call nothing are not missed.
  // Even numbers are often no pointers at all; ARM code has been given as one when it stands at a multiple of 4 and
  // starts by saving registers.
  void perhaps_pointer(uint32_t value) {
    if (!module_.arm() && !module_.relocatable()) return;
    bool plausible = module_.relocatable() || begins_by_saving(module_, value & ~1u);
    if (!module_.arm() || ((value & 1) && plausible)) return pointer(value);
    if (looks_like_arm(value)) starts_.push_back({value, false});
  }

  std::vector<FunctionStart> take() {
    std::ranges::sort(starts_, {}, &FunctionStart::address);
    auto same = [](const FunctionStart& one, const FunctionStart& other) { return one.address == other.address; };
    starts_.erase(std::unique(starts_.begin(), starts_.end(), same), starts_.end());
    return std::move(starts_);
  }

 private:
  bool looks_like_arm(uint32_t address) const {
    std::optional<uint32_t> code = address % 4 == 0 && module_.is_code(address) ? module_.word(address) : std::nullopt;
    return code && ((*code & 0xFFFF4000) == 0xE92D4000 || *code == 0xE52DE004 || *code == 0xE1A0C00D);
  }

  const ElfModule& module_;
  std::vector<FunctionStart> starts_;
};

}  // namespace

bool saves_return(const ElfModule& module, uint32_t address, bool thumb) {
  CodeAt code{address, module.bytes(address)};
  if (!thumb) {
    uint32_t word = code.word(0);
    return (word & 0xFFFF4000) == 0xE92D4000 || word == 0xE52DE004;
  }
  uint32_t half = code.half(0), next = code.half(2);
  return (half & 0xFF00) == 0xB500 || (half == 0xE92D && (next & 0x4000)) ||
         (half == 0xF84D && (next & 0xFF00) == 0xED00);
}

bool saves_on_entry(const ElfModule& module, uint32_t address, bool thumb) {
  CodeAt code{address, module.bytes(address)};
  bool arguments = thumb ? (code.half(0) & 0xFFF8) == 0xB408 : (code.word(0) & 0xFFFFFFF8) == 0xE92D0008;
  return arguments || saves_return(module, address, thumb);
}

bool begins_by_saving(const ElfModule& module, uint32_t address) {
  constexpr int kFirst = 8;
  for (int count = 0; count < kFirst; ++count) {
    if (saves_return(module, address, true)) return true;
    uint32_t half = CodeAt{address, module.bytes(address)}.half(0);
    bool leads_away = half == 0 || half == 0x4770 || (half & 0xF800) == 0xE000 || (half & 0xFF00) == 0xBD00;
    if (leads_away) return false;
    address += half >= 0xE800 ? 4 : 2;
  }
  return false;
}

std::vector<FunctionStart> function_starts(const ElfModule& module) {
  Starts starts(module);
  starts.pointer(module.entry());
  for (const CodeSymbol& symbol : module.functions()) starts.pointer(symbol.address | (symbol.thumb ? 1 : 0));
  for (uint32_t address : eh_frame_functions(module)) starts.pointer(address);
  for (uint32_t value : relocated_words(module)) starts.perhaps_pointer(value);
  ExidxIndex exidx(module);
  for (const ExidxIndex::Function& function : exidx.functions()) starts.of_unknown_set(function.start);
  return starts.take();
}

}  // namespace quarl::frames
