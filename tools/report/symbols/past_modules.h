// SPDX-License-Identifier: Apache-2.0
// The libraries that lay in a process at some time, as its events tell; also those that had gone when the log's map was
// written.
#pragma once

#include <string>
#include <vector>

#include "report/reading/module_events.h"
#include "report/symbols/desk.h"

namespace quarl::report {

class PastModules {
 public:
  // `desk` must outlive it.
  PastModules(std::vector<ModuleEvent> modules, Desk& desk);

  // Of the file that began at `address`, the last one of this path; empty when no event tells.
  std::string build_id(const std::string& path, uint64_t address) const;

  // A library, and where in it: `offset` in its file.
  struct Place {
    const ModuleEvent* module = nullptr;
    SymbolFile* file = nullptr;  // null when the desk has none; `offset` is an address of the file then
    uint64_t offset = 0;
  };
  // What may have lain at an address, the last one first; of files of the desk only those whose code reaches there,
  // of others the nearest below.
  std::vector<Place> at(uint32_t address);

 private:
  struct Module {
    ModuleEvent event;
    bool looked_for = false;
    SymbolFile* file = nullptr;
  };
  SymbolFile* file_of(Module& module);
  bool begins_between(uint32_t low, uint32_t high) const;  // (low, high]

  Desk& desk_;
  std::vector<Module> modules_;  // the last one first
};

}  // namespace quarl::report
