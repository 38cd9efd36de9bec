// SPDX-License-Identifier: Apache-2.0
// The dynamic loader, as it shows itself to debuggers.
#pragma once

#include <cstdint>

namespace quarl {

// What was added to its link-time addresses, which begin at 0.
uint32_t loader_bias();

// It may be mapping a library's code, or have mapped some that no code has run of yet: between the two it allocates and
// says so. True also where it does not tell of all libraries. Reads memory of the loader's that stays; takes no lock.
bool loader_may_be_loading();

}  // namespace quarl
