// SPDX-License-Identifier: Apache-2.0
// A filter of system calls that the program sets itself: what there is to write is written before, as at exit.
#pragma once

namespace quarl {

void register_filter_steps();

}  // namespace quarl
