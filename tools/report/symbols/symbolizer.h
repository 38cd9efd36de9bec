// Return addresses of one process turned into functions and source lines.
#pragma once

#include <span>
#include <string>
#include <unordered_map>

#include "report/symbols/desk.h"

namespace quarl::report {

// A frame of the checker or of an allocation entry (malloc, operator new and the like).
bool is_allocation_entry(const Frame& frame);

class Symbolizer {
 public:
  // `desk` must outlive the symbolizer. `sample` are return addresses of the process: a file of the desk in which many
  // of them follow no call is another build of the one that ran, and is not used.
  Symbolizer(Maps maps, Desk& desk, std::vector<uint32_t> sample)
      : maps_(std::move(maps)), desk_(desk), sample_(std::move(sample)) {}

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
  // A file of the desk, and whether it is told already that addresses in it follow no call.
  struct File {
    SymbolFile* file = nullptr;
    bool told = false;
  };
  Frames resolve(uint32_t address);
  Frames resolve_in(File& known, uint32_t address, const Mapping& mapping, Frame frame);
  File& file_of(const std::string& path);
  bool is_other_build(const SymbolFile& file, const std::string& path);

  Maps maps_;
  Desk& desk_;
  std::vector<uint32_t> sample_;
  std::unordered_map<std::string, File> files_;
  std::unordered_map<uint32_t, Frames> cache_;
};

}  // namespace quarl::report
