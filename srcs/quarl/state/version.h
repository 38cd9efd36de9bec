// SPDX-License-Identifier: Apache-2.0
// The version of the library: of the project, which CMakeLists.txt names.
#pragma once

#include "platform/annotations.h"

extern "C" {
extern QUARL_EXPORT const char* const quarl_version;
}
