// SPDX-License-Identifier: Apache-2.0
// An ELF file as it lies mapped in the process: where its code is, and its build id.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/address.h"

namespace quarl {

// Copies memory of the process; false when it is not there.
using MemoryCopier = bool (*)(const void* from, void* to, size_t size);

inline constexpr int kBuildIdMax = 32;  // of a longer one the first bytes

struct MappedObject {
  uint32_t bias = 0;  // what the loader added to its link-time addresses
  uint32_t text_low = 0;
  uint32_t text_high = 0;        // [low, high): all executable segments
  AddressRange first_segment{};  // of these the first, as large as it is in the file
  uint8_t id_size = 0;           // of the build id, 0: it has none
  alignas(uint32_t) uint8_t id[kBuildIdMax] = {};

  // From the first byte of the file in memory. False for what is no ELF file of this machine (as ELF numbers them) with
  // code in it. Allocates nothing; as safe in a signal handler as `copy`.
  bool read(uint32_t base, uint16_t machine, MemoryCopier copy);
};

}  // namespace quarl
