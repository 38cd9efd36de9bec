// SPDX-License-Identifier: Apache-2.0
// Where a debugger finds what the checker knows of a process, live or dead: in the process's memory alone. The table is
// the symbol qr_process_table; it lies in memory that the loader has written, so that a core file has it whatever it
// leaves out, and begins with the eight characters of `magic`. All numbers are in the target's byte order.
// tools/gdb/quarl.py reads it.
#pragma once

#include "quarlheap/model/header_table.h"

namespace quarl {

inline constexpr uint16_t kProcessTableVersion = 1;

// A variable of the library's.
struct ProcessTableRow {
  char name[16];  // NUL-padded
  const void* address;
};

struct ProcessTable {
  char magic[8];
  uint16_t version;
  uint16_t rows;
  HeaderTable header;
  ProcessTableRow words[10];
};
static_assert(sizeof(void*) != 4 || sizeof(ProcessTable) == 12 + sizeof(HeaderTable) + 10 * 20);

}  // namespace quarl
