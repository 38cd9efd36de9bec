#include "quarlheap/upkeep/configuration_event.h"

#include "config/item_rows.h"
#include "state/events/event.h"

namespace quarl {
namespace {

// Items by the number that they set; 0 of those that are off.
void put_numbers(JsonLine& line) {
  const auto put = [&line](const char* key, int64_t value) {
    if (value > 0) line.number(key, static_cast<uint64_t>(value));
  };
  put("QUARL_HEAD_STACKDEPTH", Flags().set(kHeadStackdepth) ? settings.stack_depth : 0);
  put("QUARL_MMAP", QR_TRACE_MMAP);
  put("QUARL_MAPS_SIZE", settings.maps_size_kb);
  put("QUARL_TRACE_BUFSIZE", settings.trace_buf_size);
  put("QUARL_TIMER_SIG", qr_sig_num);
  put("QUARL_SNAP_INTERVAL", settings.snap_interval);
  put("QUARL_SNAP_DETAIL", settings.snap_detail);
}

}  // namespace

void describe_configuration(JsonLine& line) {
  line.open_object("items");
  put_numbers(line);
  for (const ItemRow& row : kItemRows) {
    const bool depth = row.bit.mask == kHeadStackdepth && row.bit.word == &Settings::cfg_flags;
    if (row.bit.word == nullptr || depth || (load_flags(settings.*row.bit.word) & row.bit.mask) == 0) continue;
    line.number(row.key, 1);
  }
  line.close();
}

void tell_configuration() {
  if (tell_loaded(describe_configuration)) return;
  const Event event("items");
  if (event) describe_configuration(event.line());
}

}  // namespace quarl
