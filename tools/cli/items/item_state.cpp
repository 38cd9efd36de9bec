#include "items/item_state.h"

#include <algorithm>
#include <iterator>

#include "items/item_values.h"

namespace quarl {
namespace {

// They act whatever their value is.
constexpr std::string_view kAlwaysOn[] = {"QUARL_LOG_FILENAME", "QUARL_SIG",           "QUARL_TIMER_SIG",
                                          "QUARL_MAPS_SIZE",    "QUARL_TRACE_BUFSIZE", "QUARL_SLOPOVER_USER"};

}  // namespace

const ItemState::Setting* ItemState::find(std::string_view key) const {
  auto found = settings_.find(key);
  return found == settings_.end() ? nullptr : &found->second;
}

void ItemState::apply(const ItemInfo& item, const std::string& value, int line) {
  on_[item.key] = outcome(item, value);
  settings_[item.key] = {value, line};
}

void ItemState::apply_defaults() {
  for (const ItemInfo& item : kItemTable) {
    if (item.default_on && !find(item.key)) apply(item, "1", 0);
  }
}

bool ItemState::on(std::string_view key) const {
  auto found = on_.find(key);
  return found != on_.end() && found->second;
}

bool ItemState::outcome(const ItemInfo& item, const std::string& value) {
  std::string_view key = item.key;
  bool one = value.starts_with('1');
  long number = leading_number(value);
  if (std::find(std::begin(kAlwaysOn), std::end(kAlwaysOn), key) != std::end(kAlwaysOn)) return true;
  if (key == "QUARL_HEAD_STACKDEPTH") return number >= 1 && number <= 64;
  if (key == "QUARL_TIME_INTERVAL") return start_timer(number);
  if (key == "QUARL_SNAP_INTERVAL") return number != 0 && clock_wanted_;
  if (key == "QUARL_PROF" && !one) return on(key) && !on("QUARL_ALL");  // only switched off under the master switch
  if (key == "QUARL_THREAD" && on("QUARL_ALL") && !on("QUARL_PROF")) return on(key);
  if (key == "QUARL_HEAD_TIME" && value.starts_with('2')) return clock_wanted_ = true;
  return one;
}

bool ItemState::start_timer(long seconds) {
  if (!clock_wanted_ || !on("QUARL_ALL") || !on("QUARL_MEM_HEAD") || !on("QUARL_HEAD_TIME")) return false;
  return clock_wanted_ = seconds > 0;
}

}  // namespace quarl
