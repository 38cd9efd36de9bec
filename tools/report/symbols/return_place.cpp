// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/return_place.h"

namespace quarl::report {

Landing ReturnPlace::landing() const {
  if (file->call_ends_at(offset, thumb)) return Landing::kBehindCall;
  auto address = file->address_of(offset);
  return address && file->function_starts_at(*address) ? Landing::kFunctionStart : Landing::kAstray;
}

Frames ReturnPlace::frames(Frame frame, Landing landing) const {
  if (landing == Landing::kFunctionStart) {
    ++frame.offset;
    ++frame.address;
  }
  auto at = file->address_of(frame.offset);
  return at ? file->resolve(*at, frame) : Frames{frame};
}

}  // namespace quarl::report
