// SPDX-License-Identifier: Apache-2.0
// What stories say of a block.
#pragma once

#include "story/telling/page.h"

namespace quarl::story {

// "a block of 12 bytes", "a block of unknown size at 0x09f15f60".
std::string name_of_block(const Fields& block);

// Where it was allocated, and where released, as far as that is known.
void add_history(Page& page, const Process& process, const Fields& block, PlaceFinder& places);

}  // namespace quarl::story
