// SPDX-License-Identifier: Apache-2.0
// The configuration file of one run: a file's lines with items from the command line put in, in an order in which
// all of them act.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "items/assignment.h"

namespace quarl {

// An item from the command line replaces the file's lines for the same key; of two for one key the later one stays.
// Items that others look at when they are set come before the file's lines, the rest behind them; a master that
// nothing sets is added with its default when an item behind it needs it.
// A Refusal when an item from the command line would have no effect; the file's own faults are only told.
std::string compose_config(std::string_view file_bytes, const std::string& file_name,
                           const std::vector<Assignment>& items);

// Tells on standard error what the library would not do as the file says.
void warn_of_config(std::string_view file_bytes, const std::string& file_name);

}  // namespace quarl
