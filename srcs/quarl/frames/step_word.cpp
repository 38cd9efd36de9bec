// SPDX-License-Identifier: Apache-2.0
#include "frames/step_word.h"

namespace quarl {
namespace {

// The number of the register in the word, -1: none.
int base_in_word(uint8_t base) {
  if (base == kFrameSp) return 0;
  if (base == (frame::kHasR11 ? kFrameR7 : kFrameEbp)) return 1;
  return frame::kHasR11 && base == kFrameR11 ? 2 : -1;
}

// What is lost is more words below than fit.
uint32_t words_below(int16_t place) {
  return static_cast<uint32_t>(-int32_t{place}) / sizeof(uint32_t);
}

}  // namespace

StepWord step_word(const FrameRule& rule) {
  using namespace detail;
  const StepWord unpacked = address_of(&rule);
  const int base = base_in_word(rule.base);
  if (base < 0 || rule.cfa <= 0) return unpacked;
  const uint32_t cfa = static_cast<uint32_t>(rule.cfa) / sizeof(uint32_t);
  const uint32_t back = words_below(rule.return_place);
  const uint32_t saved = words_below(rule.frame_place);
  if (!kStepCfa.fits(cfa) || !kStepFrame.fits(saved)) return unpacked;
  const StepWord word = 1 | kStepBase.with(static_cast<uint32_t>(base)) | kStepFrame.with(saved) | kStepCfa.with(cfa);
  if (!frame::kHasR11) return back == 1 ? word : unpacked;
  const uint32_t saved_r11 = words_below(rule.r11_place);
  if (back == 0 || !kStepReturn.fits(back) || !kStepR11.fits(saved_r11)) return unpacked;
  return word | kStepReturn.with(back) | kStepR11.with(saved_r11);
}

}  // namespace quarl
