// SPDX-License-Identifier: Apache-2.0
#include "state/version.h"

const char* const quarl_version = QUARL_VERSION;
