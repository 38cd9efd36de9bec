// SPDX-License-Identifier: Apache-2.0
#include "frames/sources/exidx_rules.h"

#include "frames/sources/exidx_code.h"

namespace quarl::frames {

std::optional<SourcedRule> ExidxRules::rule(const CallSite& call) {
  const ExidxIndex::Function* function = index_.find(call.address);
  if (function == nullptr) return std::nullopt;
  auto [position, added] = rules_.try_emplace(function->start);
  if (added) {
    if (auto instructions = index_.instructions(*function)) position->second = run_exidx(*instructions);
  }
  if (!position->second) return std::nullopt;
  return SourcedRule{*position->second, function->start};
}

}  // namespace quarl::frames
