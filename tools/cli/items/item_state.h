// What is in force in a process after some items were applied: the part of the library's state that decides
// whether an item acts.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "config/item_rows.h"

namespace quarl {

class ItemState {
 public:
  struct Setting {
    std::string value;
    int line;  // of the file, from 1; 0 for a default
  };

  // Null when nothing set the item.
  const Setting* find(std::string_view key) const;

  // False when the item keeps the value that it has.
  bool takes_another(const ItemInfo& item) const { return item.resettable || !find(item.key); }

  void apply(const ItemInfo& item, const std::string& value, int line);

  // "1" for every default-on item that nothing set, in table order.
  void apply_defaults();

  // The item's switch is on; for a valued item, that its value makes it act.
  bool on(std::string_view key) const;
  bool clock_wanted() const { return clock_wanted_; }  // the interval timer may be started, or runs
  bool timer_started() const { return on("QUARL_TIME_INTERVAL"); }

 private:
  bool outcome(const ItemInfo& item, const std::string& value);
  bool start_timer(long seconds);

  std::map<std::string, Setting, std::less<>> settings_;
  std::map<std::string, bool, std::less<>> on_;
  bool clock_wanted_ = false;
};

}  // namespace quarl
