// SPDX-License-Identifier: Apache-2.0
#include "frames/elf/pointers.h"

#include <dwarf.h>
#include <elf.h>
#include <elfutils/libdw.h>

#include <cstdlib>
#include <map>

namespace quarl::frames {
namespace {

std::map<uint32_t, uint32_t> dynamic_entries(const ElfModule& module) {
  std::map<uint32_t, uint32_t> entries;
  std::optional<Segment> dynamic = module.part(PT_DYNAMIC);
  if (!dynamic) return entries;
  for (uint32_t at = 0; at + 8 <= dynamic->bytes.size(); at += 8) {
    std::optional<uint32_t> tag = module.word(dynamic->address + at), value = module.word(dynamic->address + at + 4);
    if (!tag || !value || *tag == DT_NULL) break;
    entries[*tag] = *value;
  }
  return entries;
}

void add_relative(const ElfModule& module, std::vector<uint32_t>& words) {
  std::map<uint32_t, uint32_t> dynamic = dynamic_entries(module);
  for (uint32_t tag : {DT_INIT, DT_FINI}) {
    if (dynamic.contains(tag)) words.push_back(dynamic[tag]);
  }
  if (!dynamic.contains(DT_REL) || !dynamic.contains(DT_RELSZ)) return;
  const uint32_t relative = module.arm() ? R_ARM_RELATIVE : R_386_RELATIVE;
  for (uint32_t at = 0; at + 8 <= dynamic[DT_RELSZ]; at += 8) {
    std::optional<uint32_t> place = module.word(dynamic[DT_REL] + at), info = module.word(dynamic[DT_REL] + at + 4);
    if (!place || !info) return;
    std::optional<uint32_t> word = ELF32_R_TYPE(*info) == relative ? module.word(*place) : std::nullopt;
    if (word) words.push_back(*word);
  }
}

void add_all_data(const ElfModule& module, std::vector<uint32_t>& words) {
  for (const Segment& segment : module.segments()) {
    if (segment.executable) continue;
    for (uint32_t at = -segment.address & 3; at + 4 <= segment.bytes.size(); at += 4) {
      words.push_back(*module.word(segment.address + at));
    }
  }
}

Dwarf_CFI* eh_frame(const ElfModule& module, Dwarf_Addr& bias) {
  return module.arm() ? nullptr : dwfl_module_eh_cfi(module.dwfl(), &bias);
}

// Parts of functions that lie elsewhere, being rarely used, are listed as functions are; but their stack has grown.
bool begins_a_function(Dwarf_CFI* cfi, Dwarf_Addr address) {
  Dwarf_Frame* frame = nullptr;
  if (cfi == nullptr || dwarf_cfi_addrframe(cfi, address, &frame) != 0) return true;
  Dwarf_Op* ops = nullptr;
  size_t count = 0;
  bool known = dwarf_frame_cfa(frame, &ops, &count) == 0 && count == 1 && ops[0].atom == DW_OP_bregx;
  bool at_start = known && ops[0].number == 4 && ops[0].number2 == 4;  // esp + 4
  std::free(frame);
  return at_start;
}

}  // namespace

std::vector<uint32_t> eh_frame_functions(const ElfModule& module) {
  std::optional<Segment> header = module.part(PT_GNU_EH_FRAME);
  std::vector<uint32_t> functions;
  // Version 1, a pointer of 4 bytes, a count of 4 bytes, a table of pairs of 4 bytes each, relative to its start.
  if (!header || header->bytes.size() < 12 || module.word(header->address) != 0x3B031B01u) return functions;
  Dwarf_Addr bias = 0;
  Dwarf_CFI* cfi = eh_frame(module, bias);
  uint32_t count = module.word(header->address + 8).value_or(0);
  for (uint32_t index = 0; index < count && 12 + 8 * uint64_t{index} + 8 <= header->bytes.size(); ++index) {
    uint32_t address = header->address + module.word(header->address + 12 + 8 * index).value_or(0);
    if (begins_a_function(cfi, address - bias)) functions.push_back(address);
  }
  return functions;
}

bool in_eh_frame(const ElfModule& module, uint32_t address) {
  Dwarf_Addr bias = 0;
  Dwarf_CFI* cfi = eh_frame(module, bias);
  Dwarf_Frame* frame = nullptr;
  bool found = cfi != nullptr && dwarf_cfi_addrframe(cfi, address - bias, &frame) == 0;
  std::free(frame);
  return found;
}

std::vector<uint32_t> relocated_words(const ElfModule& module) {
  std::vector<uint32_t> words;
  if (module.relocatable())
    add_relative(module, words);
  else
    add_all_data(module, words);
  return words;
}

}  // namespace quarl::frames
