#include "report/symbols/inline_chain.h"

#include <dwarf.h>
#include <elfutils/libdw.h>

#include <cstdlib>
#include <memory>

#include "report/symbols/function_table.h"

namespace quarl::report {
namespace {

// The scopes around an address, innermost first; libdw allocates the array.
struct Scopes {
  std::unique_ptr<Dwarf_Die, decltype(&free)> dies{nullptr, &free};
  int count = 0;
};

Scopes concrete_scopes(Dwarf_Die* unit, Dwarf_Addr address) {
  Dwarf_Die* found = nullptr;
  int count = dwarf_getscopes(unit, address, &found);
  Scopes around{{found, &free}, count};
  if (count <= 0) return {};
  Dwarf_Die* chain = nullptr;
  count = dwarf_getscopes_die(&around.dies.get()[0], &chain);
  return {{chain, &free}, count};
}

std::string function_name(Dwarf_Die* die) {
  Dwarf_Attribute attribute;
  for (unsigned name : {DW_AT_linkage_name, DW_AT_MIPS_linkage_name}) {
    if (dwarf_attr_integrate(die, name, &attribute) == nullptr) continue;
    if (const char* text = dwarf_formstring(&attribute)) return demangle(text);
  }
  const char* plain = dwarf_diename(die);
  return plain == nullptr ? "" : plain;
}

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

Frames inline_chain(Dwfl_Module* module, uint64_t address, const Frame& frame) {
  Frames frames = {frame};
  take_line(module, address, frames.back());
  Dwarf_Addr bias = 0;
  Dwarf_Die* unit = dwfl_module_addrdie(module, address, &bias);
  if (unit == nullptr) return frames;
  Scopes scopes = concrete_scopes(unit, address - bias);
  for (int index = 0; index < scopes.count; ++index) {
    Dwarf_Die* die = &scopes.dies.get()[index];
    int tag = dwarf_tag(die);
    if (tag != DW_TAG_inlined_subroutine && tag != DW_TAG_subprogram) continue;
    frames.back().function = function_name(die);
    if (tag == DW_TAG_subprogram) break;
    frames.back().inlined = true;
    frames.push_back(frame);
    take_call_site(unit, die, frames.back());
  }
  return frames;
}

}  // namespace quarl::report
