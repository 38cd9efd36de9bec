// What the items make of their values: which are taken as written, and which are quietly read as something else.
#pragma once

#include <string>
#include <string_view>

#include "config/item_rows.h"

namespace quarl {

// The row of a key, compared exactly; null for an unknown key.
const ItemInfo* find_item(std::string_view key);

// What to say about an unknown key, with the key that was probably meant.
std::string unknown_key(std::string_view key);

// Empty when the item takes the value as written; otherwise what it makes of it instead, and what to write.
std::string value_complaint(const ItemInfo& item, std::string_view value);

// atoi: optional sign and leading digits; 0 when there are none.
long leading_number(std::string_view value);

}  // namespace quarl
