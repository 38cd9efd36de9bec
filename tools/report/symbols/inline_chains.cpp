// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/inline_chains.h"

#include <dwarf.h>
#include <elfutils/libdw.h>

namespace quarl::report {
namespace {

int number(Dwarf_Die* die, unsigned name) {
  Dwarf_Attribute attribute;
  Dwarf_Word value = 0;
  bool there = dwarf_attr(die, name, &attribute) != nullptr && dwarf_formudata(&attribute, &value) == 0;
  return there ? static_cast<int>(value) : 0;
}

// Sets where the inlined call stands in the source.
void take_call_site(Dwarf_Die* unit, Dwarf_Die* inlined, Frame& caller) {
  Dwarf_Files* files = nullptr;
  size_t count = 0;
  size_t index = static_cast<size_t>(number(inlined, DW_AT_call_file));
  const char* name = nullptr;
  if (dwarf_getsrcfiles(unit, &files, &count) == 0 && index < count)
    name = dwarf_filesrc(files, index, nullptr, nullptr);
  caller.file = name == nullptr ? "" : name;
  caller.line = number(inlined, DW_AT_call_line);
}

void take_line(Dwfl_Module* module, uint64_t address, Frame& frame) {
  Dwfl_Line* line = dwfl_module_getsrc(module, address);
  if (line == nullptr) return;
  const char* file = dwfl_lineinfo(line, nullptr, &frame.line, nullptr, nullptr, nullptr);
  if (file != nullptr) frame.file = file;
}

}  // namespace

const ScopeTree& InlineChains::scopes_of(Dwarf_Die* unit) {
  auto [position, added] = units_.try_emplace(dwarf_dieoffset(unit));
  if (added) position->second = std::make_unique<ScopeTree>(unit);
  return *position->second;
}

Frames InlineChains::at(uint64_t address, const Frame& frame) {
  Frames frames = {frame};
  take_line(module_, address, frames.back());
  Dwarf_Addr bias = 0;
  Dwarf_Die* unit = dwfl_module_addrdie(module_, address, &bias);
  if (unit == nullptr) return frames;
  auto scopes = scopes_of(unit).around(address - bias);
  for (auto scope = scopes.rbegin(); scope != scopes.rend(); ++scope) {
    frames.back().function = (*scope)->function;
    if (!(*scope)->inlined) break;
    frames.back().inlined = true;
    frames.push_back(frame);
    Dwarf_Die die = (*scope)->die;
    take_call_site(unit, &die, frames.back());
  }
  return frames;
}

}  // namespace quarl::report
