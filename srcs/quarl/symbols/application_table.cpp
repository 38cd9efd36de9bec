// SPDX-License-Identifier: Apache-2.0
// The weak definitions that an application's own symbol table replaces. In a file of its own: the compiler must not see
// their size where they are read, nor link-time optimisation make them strong.
#include "symbols/symbol_table.h"

extern "C" {
__attribute__((weak)) quarl::TaSymbol taSymTbl[1] = {};
__attribute__((weak)) uint32_t ulSymTblSize = 0;
}
