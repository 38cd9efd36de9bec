#include "quarlheap/upkeep/pending_work.h"

#include "platform/thread_cache.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/upkeep/auto_snapshot.h"
#include "quarlheap/upkeep/dump.h"

namespace quarl {

void do_pending_work(uint32_t work) {
  hook_mutex.assert_held();
  const InsideChecker inside;
  if ((work & kPendingTick) != 0) take_due_snapshot();
  if ((work & kPendingCheck) != 0) qr_heap_check();
  if ((work & kPendingDump) != 0) run_signal_dump();
}

}  // namespace quarl
