#include "quarlheap/upkeep/configuration_event.h"

#include "config/item_rows.h"
#include "state/events/event.h"

namespace quarl {
namespace {

// Items beside a bit, or besides it, by the number that they set.
void put_numbers(JsonLine& line) {
  line.number("QUARL_HEAD_STACKDEPTH", static_cast<uint32_t>(settings.stack_depth));
  line.number("QUARL_MAPS_SIZE", static_cast<uint32_t>(settings.maps_size_kb));
  line.number("QUARL_TRACE_BUFSIZE", settings.trace_buf_size);
  line.number("QUARL_SNAP_INTERVAL", static_cast<uint32_t>(settings.snap_interval));
  line.number("QUARL_SNAP_DETAIL", static_cast<uint32_t>(settings.snap_detail));
  line.number("QUARL_TIMER_SIG", static_cast<uint32_t>(qr_sig_num));
  line.number("QUARL_MMAP", static_cast<uint32_t>(QR_TRACE_MMAP));
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
  if (tell_loaded()) return;
  const Event event("items");
  if (event) describe_configuration(event.line());
}

}  // namespace quarl
