// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/pointer_check.h"

#include "platform/libc_hooks.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/checking/fault_report.h"
#include "quarlheap/checking/fault_stop.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

// `search`: the block is not the one that the call is about.
[[noreturn, gnu::cold, gnu::noinline]] void report_and_stop(DoubtfulBlock block, FaultCode code, bool lock_held,
                                                            bool search = false) REQUIRES(hook_mutex) {
  expect_release();
  expect_fault_that_stops(search);
  qr_report_fault(block, code);
  qr_fault_stop(current_tid(), lock_held);
}

}  // namespace

[[gnu::noinline]] void qr_check_before_release(DoubtfulBlock block, bool lock_held) {
  const FaultCode code = qr_check_block(block);
  if (code != QR_FAULT_NONE) report_and_stop(block, code, lock_held);
}

[[gnu::noinline]] bool qr_find_used_block(Address p, bool lock_held) {
  BlockWalk walk;
  for (; walk.here(); walk.step()) {
    if (walk.block().p() == p) return true;
    if (check_on_walk(walk.block()) == QR_FAULT_HEAD) report_and_stop(walk.block(), QR_FAULT_HEAD, lock_held, true);
  }
  if (walk.met_whole_list()) return is_tied(p);
  // Lost from the list by a damaged link, but still known by a neighbour; or by nobody, where blocks are.
  return is_listed(p) || (walk.broke_off() && DoubtfulBlock(p).can_be_block());
}

namespace {

// A block that names itself but is not the list's: it was released, or moved by a resize, and its header outlived it;
// or it is one that a damaged list has lost. A link that leads nowhere is a damaged head; others are mended when the
// block goes.
[[gnu::cold, gnu::noinline]] void check_links(DoubtfulBlock block) REQUIRES(hook_mutex) {
  if (!block.can_be_block()) report_and_stop(block, QR_FAULT_DOUBLE_FREE, true);
  if (!is_listed(block.p())) report_and_stop(block, list_is_broken() ? QR_FAULT_HEAD : QR_FAULT_DOUBLE_FREE, true);
  if (has_wild_link(block)) report_and_stop(block, QR_FAULT_HEAD, true);
}

}  // namespace

CheckedPointer classify_pointer(Address p) {
  const DoubtfulBlock block(p);
  if (__builtin_expect(block.is_freed(), 0)) qr_check_before_release(block, true);
  if (__builtin_expect(!block.names_itself(), 0)) {
    if (take_bare_block(pointer_to(p))) return CheckedPointer(p);
    if (qr_find_used_block(p, true)) report_and_stop(block, QR_FAULT_HEAD, true);
    return CheckedPointer(p);
  }
  const BoundedBlock bounded = block.bounded();
  const Ties ties = bounded && !used_list_closed ? ties_of(p) : Ties{};
  if (__builtin_expect(!ties, 0)) check_links(block);
  const FaultCode code = check_linked_block(bounded);
  if (code != QR_FAULT_NONE) report_and_stop(block, code, true);
  return {{p, bounded.offset(), bounded.layout(), bounded.size()}, ties};
}

}  // namespace quarl
