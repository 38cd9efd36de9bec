// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/function_table.h"

#include <cxxabi.h>
#include <gelf.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace quarl::report {
namespace {

bool is_function(const GElf_Sym& symbol, GElf_Word section, const char* name) {
  int type = GELF_ST_TYPE(symbol.st_info);
  bool assembler_label = type == STT_NOTYPE && GELF_ST_BIND(symbol.st_info) == STB_GLOBAL;
  bool code = type == STT_FUNC || type == STT_GNU_IFUNC || assembler_label;
  return code && section != SHN_UNDEF && section != SHN_ABS && name != nullptr && name[0] != '\0' && name[0] != '$';
}

bool is_arm(Dwfl_Module* module) {
  GElf_Addr bias;
  Elf* elf = dwfl_module_getelf(module, &bias);
  GElf_Ehdr header;
  return elf != nullptr && gelf_getehdr(elf, &header) != nullptr && header.e_machine == EM_ARM;
}

}  // namespace

std::string demangle(const char* name) {
  int status = 0;
  std::unique_ptr<char, decltype(&free)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status), &free);
  return status == 0 && text ? text.get() : name;
}

FunctionTable::FunctionTable(Dwfl_Module* module) {
  uint64_t thumb_bit = is_arm(module) ? 1 : 0;
  int count = dwfl_module_getsymtab(module);
  for (int index = 1; index < count; ++index) {
    GElf_Sym symbol;
    GElf_Addr address;
    GElf_Word section;
    const char* name = dwfl_module_getsym_info(module, index, &symbol, &address, &section, nullptr, nullptr);
    if (is_function(symbol, section, name)) functions_.push_back({address & ~thumb_bit, symbol.st_size, name});
  }
  // Of several names of one address the one with a size comes first; unique() keeps it.
  std::stable_sort(functions_.begin(), functions_.end(), [](const Function& a, const Function& b) {
    return a.start != b.start ? a.start < b.start : a.size > b.size;
  });
  auto same = [](const Function& a, const Function& b) { return a.start == b.start; };
  functions_.erase(std::unique(functions_.begin(), functions_.end(), same), functions_.end());
}

std::optional<FunctionTable::Match> FunctionTable::find(uint64_t address) const {
  auto behind = std::upper_bound(functions_.begin(), functions_.end(), address,
                                 [](uint64_t value, const Function& function) { return value < function.start; });
  if (behind == functions_.begin()) return std::nullopt;
  const Function& function = *std::prev(behind);
  uint64_t offset = address - function.start;
  return Match{function.name, offset, function.size == 0 || offset < function.size};
}

}  // namespace quarl::report
