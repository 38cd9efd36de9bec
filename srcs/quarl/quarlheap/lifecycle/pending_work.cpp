#include "quarlheap/lifecycle/pending_work.h"

#include "logs/dump.h"
#include "logs/interval_timer.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/heap_check.h"

namespace quarl {

void do_pending_work(uint32_t work) {
  hook_mutex.assert_held();
  const InsideChecker inside;
  if ((work & kPendingTick) != 0) run_timer_tick();
  if ((work & kPendingCheck) != 0) qr_heap_check();
  if ((work & kPendingDump) != 0) run_signal_dump();
}

}  // namespace quarl
