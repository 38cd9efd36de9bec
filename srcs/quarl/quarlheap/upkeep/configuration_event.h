// SPDX-License-Identifier: Apache-2.0
// Which items are in force, as events tell it.
#pragma once

#include "state/events/json_line.h"

namespace quarl {

// An object `items`, name to value. Reads the settings only.
void describe_configuration(JsonLine& line);

// The configuration was read: in the `loaded` event, or by one of its own behind that.
void tell_configuration();

}  // namespace quarl
