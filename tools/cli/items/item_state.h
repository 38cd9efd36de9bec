// SPDX-License-Identifier: Apache-2.0
// What is in force in a process after some lines of configuration were applied: the library's own settings and items,
// with what each item was last set to.
#pragma once

#include <array>
#include <string>

#include "config/items.h"

namespace quarl {

class ItemState {
 public:
  struct Setting {
    std::string value;
    int line;  // of the file, from 1; 0 for a default
    Effect effect;
  };

  ItemState() = default;
  ItemState(const ItemState&) = delete;  // the items refer to the settings
  ItemState& operator=(const ItemState&) = delete;

  // One line of the file, as the library applies it.
  Applied apply(const std::string& text, int line);

  // "1" for every default-on item that nothing set, in table order.
  void apply_defaults();

  const Settings& settings() const { return settings_; }

  // Null when nothing set the item, or there is none of that key.
  const Setting* find(const std::string& key) const;

  // The item's bit is on; for an item without one, that its value has made something happen.
  bool on(const std::string& key) const;
  bool clock_wanted() const { return settings_.timer_clock_on == 1; }  // the interval timer may be started, or runs
  bool timer_started() const { return timer_started_; }
  int timer_signal() const;

 private:
  void keep(const ItemRow& row, const Setting& setting);

  Settings settings_;
  Items items_{settings_};
  std::array<Setting, kItemCount> set_to_;  // by row
  bool timer_started_ = false;
};

}  // namespace quarl
