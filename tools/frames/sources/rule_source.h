// SPDX-License-Identifier: Apache-2.0
// Where rules come from: each source is asked for the rule of a call.
#pragma once

#include <cstdint>
#include <optional>

#include "frames/code/call_sites.h"
#include "quarl/frames/table_format.h"

namespace quarl::frames {

struct SourcedRule {
  FrameRule rule;
  uint32_t start;  // it holds from here on, at least
};

enum class Source : uint8_t { kDebugFrame, kEhFrame, kExidx, kDerived };
inline constexpr int kSourceCount = 4;
const char* source_name(Source source);

class RuleSource {
 public:
  virtual ~RuleSource() = default;
  virtual Source source() const = 0;
  // Nothing when this source does not know the function, or says what FrameRule has no words for.
  virtual std::optional<SourcedRule> rule(const CallSite& call) = 0;
};

}  // namespace quarl::frames
