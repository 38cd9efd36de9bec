// SPDX-License-Identifier: Apache-2.0
// A 32-bit ELF file for i386 or ARM with what its unwind rules are made from. Addresses are those of the file itself.
#pragma once

#include <elfutils/libdwfl.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace quarl::frames {

// Why a file gets no table.
struct NoModule : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The same of a file that needs none: one of debug information alone.
struct NoCode : NoModule {
  using NoModule::NoModule;
};

struct Segment {
  uint32_t address;
  std::span<const uint8_t> bytes;  // as in the file
  bool executable;

  bool contains(uint32_t at) const { return at - address < bytes.size(); }
};

struct CodeSymbol {
  uint32_t address;  // without the Thumb bit
  bool thumb;
};

// Where ARM code, Thumb code and data begin, as the symbols $a, $t and $d tell it.
struct CodeMark {
  enum Kind : uint8_t { kArm, kThumb, kData };
  uint32_t address;
  Kind kind;
};

struct CodeRange {
  uint32_t start, end;
};

class ElfModule {
 public:
  // Split debug files are looked for in `debug_path`, directories with colons between, as in SymbolFile of the report.
  // Throws NoModule.
  ElfModule(std::string path, std::string debug_path);
  ~ElfModule();
  ElfModule(const ElfModule&) = delete;
  ElfModule& operator=(const ElfModule&) = delete;

  bool arm() const { return arm_; }
  Dwfl_Module* dwfl() const { return module_; }
  const std::vector<Segment>& segments() const { return segments_; }
  const std::vector<uint8_t>& build_id() const { return build_id_; }
  uint32_t entry() const { return entry_; }
  // From the start of the first executable segment to the end of the last one.
  uint32_t text_start() const { return text_start_; }
  uint32_t text_end() const { return text_end_; }
  bool is_code(uint32_t address) const;
  // Sections of instructions, or the executable segments where there are no sections; by address.
  const std::vector<CodeRange>& code() const { return code_; }
  // The end of the range that `address` lies in, `address` when it lies in none.
  uint32_t code_end(uint32_t address) const;
  bool relocatable() const { return relocatable_; }
  // The bytes from `address` on to the end of its segment; empty where there are none.
  std::span<const uint8_t> bytes(uint32_t address) const;
  std::optional<uint32_t> word(uint32_t address) const;
  // The contents of a program header's range; empty when there is none of this type.
  std::optional<Segment> part(uint32_t type) const;

  // By address. Symbols are read when they are asked for first; that takes most of the time that opening takes.
  const std::vector<CodeSymbol>& functions() const;
  const std::vector<CodeMark>& marks() const;

 private:
  void open();
  void read_segments();
  void read_code(Elf* elf);
  void read_symbols() const;

  std::string path_, debug_path_;
  char* debug_path_pointer_;
  Dwfl_Callbacks callbacks_ = {};
  Dwfl* dwfl_ = nullptr;
  Dwfl_Module* module_ = nullptr;
  bool arm_ = false, relocatable_ = false;
  uint32_t entry_ = 0, text_start_ = 0, text_end_ = 0;
  std::vector<Segment> segments_;
  std::vector<std::pair<uint32_t, Segment>> parts_;  // by type of program header
  std::vector<CodeRange> code_;
  std::vector<uint8_t> build_id_;
  mutable bool symbols_read_ = false;
  mutable std::vector<CodeSymbol> functions_;
  mutable std::vector<CodeMark> marks_;
};

}  // namespace quarl::frames
