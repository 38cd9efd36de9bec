// SPDX-License-Identifier: Apache-2.0
// A log that was created, as events tell it.
#pragma once

#include "state/events/event.h"

namespace quarl {

inline void tell_log(const char* kind, const char* path) {
  const Event event("log");
  if (event) event.line().text("kind", kind).text("path", path);
}

}  // namespace quarl
