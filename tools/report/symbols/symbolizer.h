// SPDX-License-Identifier: Apache-2.0
// Return addresses of one process turned into functions and source lines.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <unordered_map>

#include "report/reading/log.h"
#include "report/symbols/past_modules.h"

namespace quarl::report {

// A frame of the checker or of an allocation entry (malloc, operator new and the like).
bool is_allocation_entry(const Frame& frame);

class Symbolizer {
 public:
  // For the traces of a snapshot; `desk` must outlive the symbolizer. A file of the desk in which many return addresses
  // of the snapshot follow no call is another build of the one that ran, and is not used.
  Symbolizer(const Log& log, const Snapshot& snapshot, Desk& desk);

  // The frames of the call that returns to `address`: at least one, with the inlined ones first.
  const Frames& frames(uint32_t address);
  // The whole trace, innermost first. The frames of the checker and of the allocation entries (malloc, operator new and
  // the like) at its front are left out unless nothing else is there; the outermost of them is the first frame's entry.
  Frames trace(std::span<const uint32_t> addresses);
  // trace() with everything in it.
  Frames whole_trace(std::span<const uint32_t> addresses);

  const Maps& maps() const { return maps_; }
  // Of the file at `path` on the target; empty when unknown.
  std::string build_id(const std::string& path);

 private:
  // A file of the desk, and whether it is told already that addresses in it follow no call.
  struct File {
    SymbolFile* file = nullptr;
    bool told = false;
  };
  Frames resolve(uint32_t address);
  Frames resolve_mapped(uint32_t address, const Mapping& mapping, Frame frame);
  // As code that had gone when the map was written; nothing where no event tells of any.
  std::optional<Frames> resolve_past(uint32_t address, Frame frame);
  bool lies_behind(const ModuleEvent& module, uint32_t address) const;
  File& file_of(const std::string& path);
  bool is_other_build(SymbolFile& file, const std::string& path);

  Maps maps_;
  Desk& desk_;
  std::vector<uint32_t> sample_;
  PastModules past_;
  std::unordered_map<std::string, File> files_;
  std::unordered_map<uint32_t, Frames> cache_;
};

}  // namespace quarl::report
