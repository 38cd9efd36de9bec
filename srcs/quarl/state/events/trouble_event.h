// SPDX-License-Identifier: Apache-2.0
// What the checker could not do, as events tell it.
#pragma once

#include "platform/print.h"

namespace quarl {

// A TroubleListener. The same text is told once in a process, however often it is printed.
void tell_trouble(const Trouble& trouble);

}  // namespace quarl
