// SPDX-License-Identifier: Apache-2.0
// The symbols that a 32-bit ELF file names for its loader: found without section headers, which a stripped program need
// not have. Pure; of an image of which no byte is trusted, nothing outside is ever read.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quarl {

// Bytes of the image.
struct ElfSpan {
  size_t offset = 0;
  size_t size = 0;
};

struct ElfSymbols {
  ElfSpan symbols;
  ElfSpan strings;
  uint32_t count = 0;  // all of them inside `symbols`
};

// Those of the dynamic segment; none when it has no such segment, or tables that do not lie in the image. The image
// begins with a whole ELF header of this processor's byte order.
ElfSymbols dynamic_symbols(const uint8_t* data, size_t size);

}  // namespace quarl
