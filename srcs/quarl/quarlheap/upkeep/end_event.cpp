#include "quarlheap/upkeep/end_event.h"

#include "quarlheap/checking/block_check.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/model/used_list.h"
#include "state/events/event.h"

namespace quarl {
namespace {

// Of blocks whose size can be believed.
uint64_t live_bytes() REQUIRES(hook_mutex) {
  uint64_t bytes = 0;
  for (BlockWalk walk; walk.here(); walk.step()) {
    if (check_on_walk(walk.block()) != QR_FAULT_HEAD) bytes += walk.block().claimed_size();
  }
  return bytes;
}

void tell_end(const char* kind, int signal) REQUIRES(hook_mutex) {
  if (!events_wanted()) return;
  const uint32_t blocks = heap_block_count;
  const uint64_t bytes = live_bytes();
  const Event event(kind);
  if (!event) return;
  if (signal != 0) event.line().number("signal", static_cast<uint32_t>(signal));
  event.line().number("faults", faults_found()).number("blocks", blocks).number("bytes", bytes);
}

}  // namespace

void tell_exit(int signal) {
  tell_end("exit", signal);
}

void tell_confined() {
  tell_end("confined", 0);
}

}  // namespace quarl
