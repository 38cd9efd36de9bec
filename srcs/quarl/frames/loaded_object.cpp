// SPDX-License-Identifier: Apache-2.0
#include "frames/loaded_object.h"

#include <string.h>

namespace quarl {

void LoadedObject::identify_by_text() {
  const uint32_t words[2] = {first_segment.size, table_checksum(pointer_to(first_segment.start), first_segment.size)};
  id_kind = kTextId;
  id_size = sizeof words;
  memcpy(id, words, sizeof words);
}

}  // namespace quarl
