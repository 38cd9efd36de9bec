// SPDX-License-Identifier: Apache-2.0
// What the items make of their values: which are taken as written, and which are quietly read as something else.
#pragma once

#include <string>
#include <string_view>

#include "config/item_rows.h"

namespace quarl {

// What to say about an unknown key, with the key that was probably meant.
std::string unknown_key(std::string_view key);

// Empty when the item takes the value, of one character or more, as written; otherwise what it makes of it instead,
// and what to write.
std::string value_complaint(const ItemRow& row, const std::string& value);

}  // namespace quarl
