// SPDX-License-Identifier: Apache-2.0
#include "platform/environment.h"

#include <stdlib.h>
#include <sys/auxv.h>

namespace quarl {

bool has_borrowed_rights() {
  return getauxval(AT_SECURE) != 0;
}

const char* environment(const char* name) {
  return has_borrowed_rights() ? nullptr : getenv(name);
}

}  // namespace quarl
