// SPDX-License-Identifier: Apache-2.0
// KEY=VALUE as it is written on a command line.
#pragma once

#include <string>
#include <vector>

#include "config/item_rows.h"

namespace quarl {

struct Assignment {
  const ItemRow* item;
  std::string value;
  std::string text() const;  // KEY=VALUE
};

// A Refusal when the key is unknown or the item would not take the value as written.
Assignment parse_assignment(const std::string& text);
std::vector<Assignment> parse_assignments(const std::vector<std::string>& texts);

}  // namespace quarl
