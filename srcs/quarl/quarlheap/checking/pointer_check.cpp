#include "quarlheap/checking/pointer_check.h"

#include "platform/thread_cache.h"
#include "quarlheap/checking/fault_report.h"
#include "quarlheap/checking/fault_stop.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

[[noreturn, gnu::cold, gnu::noinline]] void report_and_stop(Address p, FaultCode code, bool lock_held)
    REQUIRES(hook_mutex) {
  expect_release();
  qr_report_fault(p, code);
  qr_fault_stop(current_tid(), lock_held);
}

}  // namespace

[[gnu::noinline]] void qr_check_before_release(Address p, bool lock_held) {
  const FaultCode code = qr_check_block(p);
  if (code != QR_FAULT_NONE) report_and_stop(p, code, lock_held);
}

[[gnu::noinline]] bool qr_find_used_block(Address p, bool lock_held) {
  for (Address block = heap_block_head; block != 0; block = next_on_walk(block)) {
    if (block == p) return true;
    if (qr_check_block(block) == QR_FAULT_HEAD) report_and_stop(block, QR_FAULT_HEAD, lock_held);
  }
  return false;
}

uint32_t classify_pointer(Address p) {
  if (__builtin_expect(is_freed(p), 0)) qr_check_before_release(p, true);
  if (__builtin_expect(!qr_is_block(p), 0)) {
    if (qr_find_used_block(p, true)) report_and_stop(p, QR_FAULT_HEAD, true);
    return 0;
  }
  const uint32_t offset = offset_of_block(p);
  const FaultCode code = check_block_at(p, offset);
  if (code != QR_FAULT_NONE) report_and_stop(p, code, true);
  return offset;
}

}  // namespace quarl
