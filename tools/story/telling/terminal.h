// SPDX-License-Identifier: Apache-2.0
// Whether text on a descriptor is to be in colours: on a terminal that can, unless NO_COLOR is set.
#pragma once

namespace quarl::story {

bool wants_colours(int descriptor);

}  // namespace quarl::story
