// SPDX-License-Identifier: Apache-2.0
#include "config/items.h"

#include <cstring>

namespace quarl {

const ItemRow* find_item(const char* key) {
  for (const ItemRow& row : kItemRows) {
    if (strcmp(row.key, key) == 0) return &row;
  }
  return nullptr;
}

Applied Items::apply(const char* text) {
  Applied applied;
  applied.line = parse_line(text);
  if (applied.line.error != LineError::kNone) return applied;
  applied.row = find_item(applied.line.key);
  if (applied.row == nullptr) {
    applied.outcome = Applied::kUnknown;
  } else if (!may_set(*applied.row)) {
    applied.outcome = Applied::kKept;
  } else {
    applied.outcome = Applied::kSet;
    applied.effect = set(*applied.row, applied.line.value);
  }
  return applied;
}

bool Items::apply_default(const ItemRow& row, Effect* effect) {
  if (is_set(row) || !row.default_on) return false;
  *effect = set(row, "1");
  return true;
}

Effect Items::set(const ItemRow& row, const char* value) {
  is_set_[&row - kItemRows] = true;
  return row.set(settings_, row, value);
}

}  // namespace quarl
