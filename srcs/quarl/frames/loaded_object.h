// An ELF file as it lies loaded in the process: where its code is, and by what name its table is known.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/table_format.h"
#include "platform/address.h"

namespace quarl {

// Copies memory of the process; false when it is not there.
using MemoryCopier = bool (*)(const void* from, void* to, size_t size);

struct LoadedObject {
  uint32_t bias = 0;  // what the loader added to its link-time addresses
  uint32_t text_low = 0;
  uint32_t text_high = 0;        // [low, high): all executable segments
  AddressRange first_segment{};  // of these the first, as large as it is in the file
  TableIdKind id_kind = kBuildId;
  uint8_t id_size = 0;  // 0: there is nothing to know it by
  alignas(uint32_t) uint8_t id[kTableIdMax] = {};

  // From the first byte of the file in memory. False for what is no ELF file of this processor with code in it.
  bool read(uint32_t base, MemoryCopier copy);

  // What a file without a build id is known by: its code as it is in memory, which must be there.
  void identify_by_text();
};

}  // namespace quarl
