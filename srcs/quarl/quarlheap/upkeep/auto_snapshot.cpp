// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/auto_snapshot.h"

#include "logs/snapshots/snapshot_chain.h"
#include "quarlheap/upkeep/unfreed.h"
#include "state/clock.h"
#include "state/settings.h"

namespace quarl {
namespace {

constinit int snap_count GUARDED_BY(hook_mutex) = 0;

void take_snapshot() REQUIRES(hook_mutex) {
  ++snap_count;
  if (!snapshot_chain.begin(snap_count)) return;
  LiveMemory live;
  const bool detailed = settings.snap_detail == 1;
  if (detailed) write_auto_snapshot_rows(&live);
  snapshot_chain.end();
  if (snapshot_chain.ended_whole()) tell_snapshot("auto", snapshot_chain.path(), detailed ? &live : nullptr);
}

}  // namespace

void schedule_auto_snapshots(int seconds) {
  settings.next_snap_time = static_cast<uint32_t>(seconds + clock_sec);
}

void take_due_snapshot() {
  if (settings.snap_interval < 1 || settings.next_snap_time > static_cast<uint32_t>(clock_sec)) return;
  const int now = clock_sec;
  take_snapshot();
  settings.next_snap_time = static_cast<uint32_t>(settings.snap_interval + now);
}

void take_final_snapshot() {
  if (settings.timer_clock_on == 0 || settings.snap_interval < 1) return;
  settings.snap_interval = 0;
  take_snapshot();
}

}  // namespace quarl
