// SPDX-License-Identifier: Apache-2.0
// Any bytes as unwinding instructions: what comes out is a rule that keeps the bounds of the table's format.
#include <cstdint>
#include <cstdlib>

#include "frames/sources/exidx_code.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto rule = quarl::frames::run_exidx({data, size});
  if (!rule) return 0;
  bool base = rule->base == quarl::kFrameSp || rule->base == quarl::kFrameR7 || rule->base == quarl::kFrameR11;
  if (!base || rule->cfa % 4 != 0) std::abort();
  for (int16_t place : {rule->return_place, rule->frame_place, rule->r11_place}) {
    if (place > 0 || place == quarl::kPlaceLost || place % 4 != 0) std::abort();
  }
  return 0;
}
