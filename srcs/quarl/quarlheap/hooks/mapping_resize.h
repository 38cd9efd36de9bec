// SPDX-License-Identifier: Apache-2.0
// What becomes of the record of a mapping whose size changes where it lies.
#pragma once

#include <cstddef>

namespace quarl {

// Takes the lock. For set_mapping_resized.
void note_resized_mapping(void* base, size_t old_size, size_t size);

}  // namespace quarl
