// SPDX-License-Identifier: Apache-2.0
// The symbol loader on any bytes: nothing outside them is read, and what is found lies inside.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "symbols/elf_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[size]);  // so that a step too far is seen
  memcpy(exact.get(), data, size);
  quarl::ElfImage image;
  if (!image.parse(exact.get(), size)) return 0;
  for (const char* name : {"main", "clone", ""}) {
    const auto* symbol = reinterpret_cast<const uint8_t*>(image.find(name));
    if (symbol == nullptr) continue;
    if (symbol < exact.get() || symbol + sizeof(Elf32_Sym) > exact.get() + size) abort();
  }
  return 0;
}
