// SPDX-License-Identifier: Apache-2.0
// Items applied to settings. Pure: no output, nothing but the settings changes; what else an item asks for comes back
// as an effect.
#pragma once

#include "config/effect.h"
#include "config/item_rows.h"
#include "config/line.h"

namespace quarl {

// What became of one line.
struct Applied {
  enum Outcome { kSet, kKept, kBadLine, kUnknown };  // kKept: an item that may not be set again
  Outcome outcome = kBadLine;
  const ItemRow* row = nullptr;  // of kSet and kKept
  Line line{};
  Effect effect{};

  bool names_item() const { return row != nullptr; }
};

class Items {
 public:
  explicit constexpr Items(Settings& target) : settings_(target) {}

  Applied apply(const char* text);

  // One row's default, "1" for a default-on item that nothing has set; nothing and false for any other.
  bool apply_default(const ItemRow& row, Effect* effect);

  // Sets the item as an applied line does, whether it may be set again or not.
  Effect set(const ItemRow& row, const char* value);

  bool is_set(const ItemRow& row) const { return is_set_[&row - kItemRows]; }
  bool may_set(const ItemRow& row) const { return row.resettable || !is_set(row); }

 private:
  Settings& settings_;
  bool is_set_[kItemCount] = {};  // becomes true when the item is first applied, from any source, and stays so
};

}  // namespace quarl
