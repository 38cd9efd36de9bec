// SPDX-License-Identifier: Apache-2.0
// A table of unwind rules of any bytes, its checksum put right so that what it guards is read as well: nothing outside
// the table is read, and what is found at any address is one of its rules.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frames/table.h"

using namespace quarl;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::unique_ptr<uint8_t[]> exact(new uint8_t[size]);  // so that a step too far is seen
  memcpy(exact.get(), data, size);
  auto* header = reinterpret_cast<TableHeader*>(exact.get());
  if (size > kTableChecked) {
    header->size = static_cast<uint32_t>(size);
    header->checksum = table_checksum(exact.get() + kTableChecked, size - kTableChecked);
  }
  FrameTable table;
  const uint16_t machine = size > kTableChecked && header->machine == kTableArm ? kTableArm : kTableI386;
  if (table.check(exact.get(), size, machine) != FrameTable::kSound) return 0;
  const uint32_t text = header->text_end - header->text_start;
  const uint32_t step = text / 1024 + 1;
  for (uint64_t distance = 0; distance <= uint64_t{text} + 1; distance += step) {
    const auto* rule =
        reinterpret_cast<const uint8_t*>(table.find(header->text_start + static_cast<uint32_t>(distance)));
    if (rule == nullptr) continue;
    if (rule < exact.get() || rule + sizeof(FrameRule) > exact.get() + size) abort();
    if (distance >= text) abort();
  }
  table.is_for(kBuildId, exact.get(), size);
  return 0;
}
