// SPDX-License-Identifier: Apache-2.0
// Rules from the code itself: what following the stack pointer to the call has shown.
#pragma once

#include "frames/sources/rule_source.h"

namespace quarl::frames {

class DerivedRules : public RuleSource {
 public:
  explicit DerivedRules(bool arm) : arm_(arm) {}
  Source source() const override { return Source::kDerived; }
  std::optional<SourcedRule> rule(const CallSite& call) override;

 private:
  bool arm_;
};

}  // namespace quarl::frames
