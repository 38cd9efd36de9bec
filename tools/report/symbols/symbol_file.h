// SPDX-License-Identifier: Apache-2.0
// An ELF file of the target, found on the desk: functions, source lines and inlined calls of its addresses.
#pragma once

#include <elfutils/libdwfl.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "report/reading/maps.h"
#include "report/symbols/frame.h"
#include "report/symbols/function_table.h"
#include "report/symbols/inline_chains.h"

namespace quarl::report {

class SymbolFile {
 public:
  // Null when there is no such file or it is no 32-bit ELF program or library. Split debug files are looked for in
  // `debug_path` (directories with colons between), by build id and by debug link with its checksum.
  static std::unique_ptr<SymbolFile> open(const std::string& path, const std::string& debug_path);
  ~SymbolFile();

  const std::string& path() const { return path_; }
  // Why this cannot be the file that was mapped so; empty when it can: each run of executable mappings must cover an
  // executable segment exactly. The others say little, an application may map any part of the file as data.
  std::string mismatch(const std::vector<Mapping>& mappings) const;
  // Hexadecimal, empty when there is none.
  std::string build_id() const;
  bool is_arm() const { return arm_; }
  // The address in the file's own numbering of what lies at `offset` in the file.
  std::optional<uint64_t> address_of(uint64_t offset) const;
  // The other way round.
  std::optional<uint64_t> offset_of(uint64_t address) const;
  // Whether a call ends at `offset` in the file, in Thumb code or not; also where that cannot be told: the code is not
  // in this file, but in the one that it was split from.
  bool call_ends_at(uint64_t offset, bool thumb) const;
  bool function_starts_at(uint64_t address) const;
  // Fills in what is known of the code at `address`: `frame` and behind it the frames it was inlined into.
  Frames resolve(uint64_t address, const Frame& frame);

 private:
  struct Segment {
    uint64_t offset, address, size;  // size in the file
    bool executable;
  };
  SymbolFile(std::string path, std::string debug_path);
  bool report();
  bool read_segments();

  std::string path_;
  std::string debug_path_;
  char* debug_path_pointer_;
  Dwfl_Callbacks callbacks_ = {};
  Dwfl* dwfl_ = nullptr;
  Dwfl_Module* module_ = nullptr;
  bool arm_ = false;
  bool has_code_ = false;
  std::vector<Segment> segments_;
  std::optional<FunctionTable> functions_;
  std::optional<InlineChains> chains_;
};

}  // namespace quarl::report
