// SPDX-License-Identifier: Apache-2.0
// Where in memory main and clone lie: looked up once, at start-up, in a table that the application supplies or in the
// ELF symbol tables of the running program.
#pragma once

#include <cstdint>

#include "platform/annotations.h"

namespace quarl {

// An entry of the application's own table, sorted by address. The application supplies one entry more than it counts:
// the size of a symbol is the distance to the next one.
struct TaSymbol {
  uint32_t name;  // address of the NUL-terminated name
  uint32_t value;
  uint32_t type;  // 2: function
  uint32_t unused[2];
  uint32_t absolute;  // 0: value is relative to the load base, else an address
};
static_assert(sizeof(TaSymbol) == 24);

}  // namespace quarl

// Weak: an application may define them itself. By default one cleared entry and 0.
extern "C" {
extern QUARL_EXPORT quarl::TaSymbol taSymTbl[];
extern QUARL_EXPORT uint32_t ulSymTblSize;
}

namespace quarl {

enum SymbolType : int { kSymbolFunction = 1, kSymbolOther = 2 };

// Loads the application's table when it has one, else the ELF file at `path`, else (path null) the running program.
// 0, or -1 with a message on standard output. A file that is no 32-bit ELF file of this byte order, or whose tables lie
// outside it, is refused.
int load_symbols(const char* path);

// The symbol's address, 0 for an unknown one. type and size (bytes) may be null, and stay as they are for an unknown
// one. ELF symbols are link-time values.
uint32_t look_up_symbol(const char* name, int* type, uint32_t* size);

// True when addresses come from an ELF file, so that the program's load bias has to be added.
bool symbols_are_link_time();

int unload_symbols();

}  // namespace quarl
