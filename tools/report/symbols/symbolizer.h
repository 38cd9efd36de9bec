// Return addresses of one process turned into functions and source lines.
#pragma once

#include <span>
#include <string>
#include <unordered_map>

#include "report/symbols/desk.h"

namespace quarl::report {

class Symbolizer {
 public:
  // `desk` must outlive the symbolizer.
  Symbolizer(Maps maps, Desk& desk) : maps_(std::move(maps)), desk_(desk) {}

  // The frames of the call that returns to `address`: at least one, with the inlined ones first.
  const Frames& frames(uint32_t address);
  // The whole trace, innermost first. The frames of the checker and of the allocation entries (malloc, operator new and
  // the like) at its front are left out unless nothing else is there.
  Frames trace(std::span<const uint32_t> addresses);
  // trace() with everything in it.
  Frames whole_trace(std::span<const uint32_t> addresses);

  const Maps& maps() const { return maps_; }
  // Of the file at `path` on the target; empty when unknown.
  std::string build_id(const std::string& path);

 private:
  Frames resolve(uint32_t address);
  SymbolFile* file_of(const std::string& path);

  Maps maps_;
  Desk& desk_;
  std::unordered_map<std::string, SymbolFile*> files_;
  std::unordered_map<uint32_t, Frames> cache_;
};

}  // namespace quarl::report
