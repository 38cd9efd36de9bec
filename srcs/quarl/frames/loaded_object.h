// SPDX-License-Identifier: Apache-2.0
// A mapped ELF file, and by what name its table is known.
#pragma once

#include "frames/table_format.h"
#include "platform/mapped_object.h"

namespace quarl {

static_assert(kTableIdMax == kBuildIdMax);

// id_size is 0 when there is nothing to know it by.
struct LoadedObject : MappedObject {
  TableIdKind id_kind = kBuildId;

  // What a file without a build id is known by: its code as it is in memory, which must be there.
  void identify_by_text();
};

}  // namespace quarl
