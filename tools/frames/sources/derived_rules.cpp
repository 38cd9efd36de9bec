// SPDX-License-Identifier: Apache-2.0
#include "frames/sources/derived_rules.h"

namespace quarl::frames {

std::optional<SourcedRule> DerivedRules::rule(const CallSite& call) {
  std::optional<FrameRule> rule = call.state ? call.state->rule(arm_) : std::nullopt;
  if (!rule) return std::nullopt;
  return SourcedRule{*rule, call.address};
}

}  // namespace quarl::frames
