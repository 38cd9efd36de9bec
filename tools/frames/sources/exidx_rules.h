// SPDX-License-Identifier: Apache-2.0
// Rules from .ARM.exidx and .ARM.extab. They hold for a whole function behind its prologue, and so for its calls.
#pragma once

#include <unordered_map>

#include "frames/elf/exidx_index.h"
#include "frames/sources/rule_source.h"

namespace quarl::frames {

class ExidxRules : public RuleSource {
 public:
  explicit ExidxRules(const ElfModule& module) : index_(module) {}
  Source source() const override { return Source::kExidx; }
  std::optional<SourcedRule> rule(const CallSite& call) override;

 private:
  ExidxIndex index_;
  std::unordered_map<uint32_t, std::optional<FrameRule>> rules_;  // by the start of the function
};

}  // namespace quarl::frames
