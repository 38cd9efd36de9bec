#include "quarlheap/checking/pointer_check.h"

#include "platform/libc_hooks.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/fault_report.h"
#include "quarlheap/checking/fault_stop.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

[[noreturn, gnu::cold, gnu::noinline]] void report_and_stop(DoubtfulBlock block, FaultCode code, bool lock_held)
    REQUIRES(hook_mutex) {
  expect_release();
  qr_report_fault(block, code);
  qr_fault_stop(current_tid(), lock_held);
}

}  // namespace

[[gnu::noinline]] void qr_check_before_release(DoubtfulBlock block, bool lock_held) {
  const FaultCode code = qr_check_block(block);
  if (code != QR_FAULT_NONE) report_and_stop(block, code, lock_held);
}

[[gnu::noinline]] bool qr_find_used_block(Address p, bool lock_held) {
  for (DoubtfulBlock block = first_on_walk(); !block.is_null(); block = next_on_walk(block)) {
    if (block.p() == p) return true;
    if (qr_check_block(block) == QR_FAULT_HEAD) report_and_stop(block, QR_FAULT_HEAD, lock_held);
  }
  return false;
}

CheckedPointer classify_pointer(Address p) {
  const DoubtfulBlock block(p);
  if (__builtin_expect(block.is_freed(), 0)) qr_check_before_release(block, true);
  if (__builtin_expect(!block.names_itself(), 0)) {
    if (take_bare_block(pointer_to(p))) return {p, 0};
    if (qr_find_used_block(p, true)) report_and_stop(block, QR_FAULT_HEAD, true);
    return {p, 0};
  }
  const uint32_t offset = block.claimed_offset();
  const FaultCode code = check_block_at(block, offset);
  if (code != QR_FAULT_NONE) report_and_stop(block, code, true);
  return {p, offset};
}

}  // namespace quarl
