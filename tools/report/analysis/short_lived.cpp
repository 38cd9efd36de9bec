// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/short_lived.h"

namespace quarl::report {

uint32_t ShortLived::born(const LiveEntry& entry) const {
  auto found = earlier_.find(entry.born);
  return found == earlier_.end() ? entry.born : found->second;
}

bool ShortLived::is_temporary(const LiveEntry& entry, const Thread& thread) const {
  if (within_ == 0) return thread.last_allocated == born(entry);
  const size_t known = thread.operations.size();
  return known < within_ || born(entry) >= thread.operations[known - within_];
}

void ShortLived::note_operation(Thread& thread, uint32_t taken) const {
  if (within_ == 0) return;
  if (thread.operations.size() > within_) thread.operations.pop_front();
  thread.operations.push_back(taken);
}

void ShortLived::release(const LiveEntry& entry, uint32_t by, const Thread& thread) {
  if (!chooser_.takes(entry, ledger_.traces())) return;
  released_ += {entry.size, 1};
  if (by == entry.tid && is_temporary(entry, thread)) sums_.add(entry);
}

// What its last operation released by a resize is really gone.
void ShortLived::settle(uint32_t tid, Thread& thread) {
  if (!thread.resized) return;
  release(thread.resized->entry, tid, thread);
  note_operation(thread, thread.resized->taken);
  earlier_.erase(thread.resized->entry.born);
  thread.resized.reset();
}

// The resize was nothing: the block is as old as it was.
void ShortLived::put_back(const LiveEntry& entry) {
  for (auto& [tid, thread] : threads_) {
    if (!thread.resized || thread.resized->entry.address != entry.address) continue;
    const uint32_t first = born(thread.resized->entry);
    earlier_.erase(thread.resized->entry.born);
    earlier_[entry.born] = first;
    return thread.resized.reset();
  }
}

void ShortLived::came(const LiveEntry& entry, const OpRecord&) {
  if (!is_mapping(entry) && ledger_.restored()) return put_back(entry);
  Thread& thread = threads_[entry.tid];
  settle(entry.tid, thread);
  thread.last_allocated = entry.born;
  note_operation(thread, entry.born);
}

void ShortLived::went(const LiveEntry& entry, Going how, const OpRecord& by) {
  if (how != Going::kReleased) return;
  Thread& thread = threads_[by.tid];
  settle(by.tid, thread);
  if (by.operation == kOpReallocRelease) {
    LiveEntry resized = entry;
    resized.address = by.start_addr;
    thread.resized = {resized, ledger_.taken()};
    return;
  }
  release(entry, by.tid, thread);
  note_operation(thread, ledger_.taken());
  earlier_.erase(entry.born);
}

void ShortLived::fill(SiteTable& table) {
  for (auto& [tid, thread] : threads_) settle(tid, thread);
  sums_.fill(table);
}

}  // namespace quarl::report
