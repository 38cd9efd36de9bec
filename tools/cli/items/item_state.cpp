// SPDX-License-Identifier: Apache-2.0
#include "items/item_state.h"

namespace quarl {
namespace {

bool acts(const Effect& effect) {
  if (effect.kind == Effect::kTraceMappings) return effect.number != 0;
  return effect.kind != Effect::kNone && effect.kind != Effect::kRefuseSnapshots;
}

}  // namespace

Applied ItemState::apply(const std::string& text, int line) {
  Applied applied = items_.apply(text.c_str());
  if (applied.outcome == Applied::kSet) keep(*applied.row, {applied.line.value, line, applied.effect});
  return applied;
}

// The settings also change when an effect cannot be carried out: the library gives up a timer that the kernel refuses.
void ItemState::keep(const ItemRow& row, const Setting& setting) {
  set_to_[&row - kItemRows] = setting;
  if (setting.effect.kind != Effect::kStartTimer) return;
  const int signal = timer_signal();
  timer_started_ = setting.effect.number > 0 && signal >= 1 && signal <= static_cast<int>(kLastSignal);
  if (!timer_started_) settings_.timer_clock_on = 0;
}

void ItemState::apply_defaults() {
  for (const ItemRow& row : kItemRows) {
    Effect effect;
    if (items_.apply_default(row, &effect)) keep(row, {"1", 0, effect});
  }
}

const ItemState::Setting* ItemState::find(const std::string& key) const {
  const ItemRow* row = find_item(key.c_str());
  return row != nullptr && items_.is_set(*row) ? &set_to_[row - kItemRows] : nullptr;
}

int ItemState::timer_signal() const {
  const Setting* setting = find("QUARL_TIMER_SIG");
  return setting != nullptr ? setting->effect.number : kDefaultTimerSignal;
}

bool ItemState::on(const std::string& key) const {
  const Setting* setting = find(key);
  if (setting == nullptr) return false;
  const ItemRow& row = *find_item(key.c_str());
  if (row.bit.word != nullptr) return (settings_.*row.bit.word & row.bit.mask) != 0;
  if (row.set == set_time_interval) return timer_started_;
  if (row.set == set_snap_detail) return settings_.snap_detail == 1;
  return acts(setting->effect);
}

}  // namespace quarl
