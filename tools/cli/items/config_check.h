// SPDX-License-Identifier: Apache-2.0
// What the library would do with a configuration file, where that is not what the file says.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "items/config_reader.h"
#include "items/item_state.h"

namespace quarl {

struct Finding {
  int line;  // from 1
  std::string text;
};

struct ConfigReport {
  explicit ConfigReport(std::string_view bytes);

  std::vector<Finding> findings;  // by line
  ItemState state;                // after the file and the defaults
  int applied = 0;                // lines that set an item
};

}  // namespace quarl
