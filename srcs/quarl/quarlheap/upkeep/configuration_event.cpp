// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/configuration_event.h"

#include "config/item_rows.h"
#include "logs/files/log_names.h"
#include "quarlheap/upkeep/interval_timer.h"
#include "state/events/event.h"

namespace quarl {
namespace {

// Items by the number that they set; 0 of those that are off.
void put_numbers(JsonLine& line) {
  const auto put = [&line](const char* key, int64_t value) {
    if (value > 0) line.number(key, static_cast<uint64_t>(value));
  };
  const Flags flags;
  put("QUARL_SIG", settings.dump_signal);
  put("QUARL_HEAD_TIME", !flags.set(kHeadTime) ? 0 : settings.timer_clock_on != 0 ? 2 : 1);
  put("QUARL_TIME_INTERVAL", interval_of_timer());
  put("QUARL_HEAD_STACKDEPTH", flags.set(kHeadStackdepth) ? settings.stack_depth : 0);
  put("QUARL_MMAP", QR_TRACE_MMAP);
  put("QUARL_MAPS_SIZE", settings.maps_size_kb);
  put("QUARL_TRACE_BUFSIZE", settings.trace_buf_size);
  put("QUARL_TIMER_SIG", qr_sig_num);
  put("QUARL_SNAP_INTERVAL", settings.snap_interval);
  put("QUARL_SNAP_DETAIL", settings.snap_detail);
  put("QUARL_SLOPOVER_USER", settings.check_signal);
}

}  // namespace

void describe_configuration(JsonLine& line) {
  line.open_object("items");
  put_numbers(line);
  line.text("QUARL_LOG_FILENAME", log_prefix());
  for (const ItemRow& row : kItemRows) {
    if (row.value != ItemValue::kSwitch || row.bit.word == nullptr) continue;
    if ((load_flags(settings.*row.bit.word) & row.bit.mask) != 0) line.number(row.key, 1);
  }
  line.close();
}

void tell_configuration() {
  if (tell_loaded(describe_configuration)) return;
  const Event event("items");
  if (event) describe_configuration(event.line());
}

}  // namespace quarl
