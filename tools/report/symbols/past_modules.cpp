// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/past_modules.h"

#include <algorithm>

namespace quarl::report {

PastModules::PastModules(std::vector<ModuleEvent> modules, Desk& desk) : desk_(desk) {
  std::for_each(modules.rbegin(), modules.rend(), [&](ModuleEvent& event) { modules_.push_back({std::move(event)}); });
}

std::string PastModules::build_id(const std::string& path, uint64_t address) const {
  auto found = std::find_if(modules_.begin(), modules_.end(), [&](const Module& module) {
    return module.event.path == path && module.event.address == address;
  });
  return found == modules_.end() ? "" : found->event.build_id;
}

SymbolFile* PastModules::file_of(Module& module) {
  if (!module.looked_for) module.file = desk_.find_build(module.event.path, module.event.build_id);
  module.looked_for = true;
  return module.file;
}

bool PastModules::begins_between(uint32_t low, uint32_t high) const {
  return std::any_of(modules_.begin(), modules_.end(),
                     [=](const Module& module) { return module.event.address > low && module.event.address <= high; });
}

std::vector<PastModules::Place> PastModules::at(uint32_t address) {
  std::vector<Place> places;
  for (Module& module : modules_) {
    if (module.event.address > address) continue;
    const uint32_t in_file = address - module.event.bias;
    SymbolFile* file = file_of(module);
    auto offset = file != nullptr ? file->offset_of(in_file) : std::nullopt;
    const bool may_reach = file == nullptr && !begins_between(module.event.address, address);
    if (offset || may_reach) places.push_back({&module.event, file, offset.value_or(in_file)});
  }
  return places;
}

}  // namespace quarl::report
