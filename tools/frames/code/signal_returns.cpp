// SPDX-License-Identifier: Apache-2.0
#include "frames/code/signal_returns.h"

#include <algorithm>
#include <string_view>

namespace quarl::frames {
namespace {

using namespace std::string_view_literals;

struct Form {
  bool arm;
  FrameBase base;
  std::string_view code;
};

constexpr Form kForms[] = {
    {false, kFrameSignal, "\x58\xB8\x77\0\0\0\xCD\x80"sv},   // pop eax; mov eax, 119; int 0x80
    {false, kFrameRtSignal, "\xB8\xAD\0\0\0\xCD\x80"sv},     // mov eax, 173; int 0x80
    {true, kFrameSignal, "\x77\x70\xA0\xE3\0\0\0\xEF"sv},    // mov r7, #119; svc 0
    {true, kFrameRtSignal, "\xAD\x70\xA0\xE3\0\0\0\xEF"sv},  // mov r7, #173; svc 0
    {true, kFrameSignal, "\x77\x27\0\xDF"sv},                // the same in Thumb
    {true, kFrameRtSignal, "\xAD\x27\0\xDF"sv},
    {true, kFrameSignal, "\x77\x70\xA0\xE3\x77\0\x90\xEF"sv},  // with the number in the instruction, too
    {true, kFrameRtSignal, "\xAD\x70\xA0\xE3\xAD\0\x90\xEF"sv},
};

}  // namespace

std::vector<SignalReturn> signal_returns(const ElfModule& module) {
  std::vector<SignalReturn> found;
  for (const CodeRange& range : module.code()) {
    std::span<const uint8_t> bytes = module.bytes(range.start);
    std::string_view code(reinterpret_cast<const char*>(bytes.data()),
                          std::min<size_t>(bytes.size(), range.end - range.start));
    for (const Form& form : kForms) {
      if (form.arm != module.arm()) continue;
      for (size_t at = code.find(form.code); at != code.npos; at = code.find(form.code, at + 1)) {
        uint32_t address = range.start + static_cast<uint32_t>(at);
        if (!module.arm() || address % (form.code.size() == 4 ? 2 : 4) == 0) found.push_back({address, form.base});
      }
    }
  }
  std::ranges::sort(found, {}, &SignalReturn::address);
  return found;
}

}  // namespace quarl::frames
