// SPDX-License-Identifier: Apache-2.0
// The debug information of one file's code addresses: the source line and the calls that were inlined there.
#pragma once

#include <elfutils/libdwfl.h>

#include <memory>
#include <unordered_map>

#include "report/symbols/frame.h"
#include "report/symbols/scope_tree.h"

namespace quarl::report {

class InlineChains {
 public:
  // `module` must outlive it.
  explicit InlineChains(Dwfl_Module* module) : module_(module) {}

  // At least one frame, innermost first, each a copy of `frame` with what the debug information adds; all but the last
  // are inlined into the one behind. Without debug information `frame` itself.
  Frames at(uint64_t address, const Frame& frame);

 private:
  const ScopeTree& scopes_of(Dwarf_Die* unit);

  Dwfl_Module* module_;
  std::unordered_map<Dwarf_Off, std::unique_ptr<ScopeTree>> units_;
};

}  // namespace quarl::report
