// SPDX-License-Identifier: Apache-2.0
// The functions of one ELF file by address, from its symbol table or, when it is stripped, its dynamic symbols.
#pragma once

#include <elfutils/libdwfl.h>

#include <optional>
#include <string>
#include <vector>

namespace quarl::report {

// The demangled name; `name` itself when it is no mangled C++ name.
std::string demangle(const char* name);

class FunctionTable {
 public:
  explicit FunctionTable(Dwfl_Module* module);

  struct Match {
    const char* name;  // mangled; belongs to the module
    uint64_t offset;   // bytes from the function's start
    bool inside;       // false when the function ends before the address
  };
  // The function that holds `address`, or else the nearest one before it.
  std::optional<Match> find(uint64_t address) const;

 private:
  struct Function {
    uint64_t start;
    uint64_t size;
    const char* name;
  };
  std::vector<Function> functions_;  // sorted by start, one per address
};

}  // namespace quarl::report
