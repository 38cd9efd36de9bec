// SPDX-License-Identifier: Apache-2.0
// The flags of a process that nothing configures, by the rows of the items. The compiler knows them: code that is given
// kDefaultFlags tests no item.
#pragma once

#include "config/item_rows.h"

namespace quarl {

constexpr uint32_t default_bits(uint32_t Settings::*word) {
  uint32_t bits = 0;
  for (const ItemRow& row : kItemRows) {
    if (row.default_on && row.bit.word == word) bits |= row.bit.mask;
  }
  return bits;
}

inline constexpr uint32_t kDefaultCfg = default_bits(&Settings::cfg_flags);
inline constexpr Flags kDefaultFlags(kDefaultCfg, default_bits(&Settings::slop_flags));
inline constexpr uint32_t kRecordingCfg = kDefaultCfg | kOutputLog;
inline constexpr Flags kRecordingFlags(kRecordingCfg, default_bits(&Settings::slop_flags));

// Bits that change nothing about one call of a hook, on or off.
inline constexpr uint32_t kBesideHooks =
    kDemoThread | kReset | kMemCheckInHook | kRecordLogAtFree | kLogOverlay | kMemCheck | kPrintProfinfo | kTimer;

// Whether a call of a hook does the same with these settings as with those flags: the default ones, or with the record
// log besides. `check_triggers` are the bits of slop_flags by which it checks the whole heap.
inline bool work_as(uint32_t cfg, const Settings& now, uint32_t check_triggers) {
  return (load_flags(now.cfg_flags) | kBesideHooks) == (cfg | kBesideHooks) &&
         (load_flags(now.slop_flags) & check_triggers) == 0;
}
inline bool as_by_default(const Settings& now, uint32_t check_triggers) {
  return work_as(kDefaultCfg, now, check_triggers);
}
inline bool as_by_default_with_records(const Settings& now, uint32_t check_triggers) {
  return work_as(kRecordingCfg, now, check_triggers);
}

}  // namespace quarl
