#include "report/analysis/short_lived.h"

namespace quarl::report {

bool ShortLived::is_temporary(const LiveEntry& entry, const Thread& thread) const {
  if (within_ == 0) return thread.last_allocated == entry.born;
  return thread.operations.size() < within_ || entry.born >= thread.operations.front();
}

void ShortLived::note_operation(Thread& thread, uint32_t taken) const {
  if (within_ == 0) return;
  if (thread.operations.size() == within_) thread.operations.pop_front();
  thread.operations.push_back(taken);
}

void ShortLived::settle(Thread& thread) {
  if (!thread.resized) return;
  released_ += {thread.resized->size, 1};
  sums_.add(*thread.resized);
  thread.resized.reset();
}

void ShortLived::came(const LiveEntry& entry, const OpRecord&) {
  Thread& thread = threads_[entry.tid];
  if (!is_mapping(entry) && ledger_.restored()) {
    // It is as young as it was.
    if (thread.resized) thread.last_allocated = entry.born;
    thread.resized.reset();
    return;
  }
  settle(thread);
  thread.last_allocated = entry.born;
  note_operation(thread, entry.born);
}

void ShortLived::went(const LiveEntry& entry, Going how, const OpRecord& by) {
  if (how == Going::kLost) return;
  Thread& thread = threads_[how == Going::kCarried ? entry.tid : by.tid];
  if (how == Going::kCarried) {  // the allocator's own doing, right before the block came
    if (!thread.operations.empty() && thread.operations.back() == entry.born) thread.operations.pop_back();
    return;
  }
  settle(thread);
  if (chooser_.takes(entry, ledger_.traces())) {
    const bool temporary = by.tid == entry.tid && is_temporary(entry, thread);
    const bool resized = by.operation == kOpReallocRelease;
    if (temporary && resized) thread.resized = entry;
    if (temporary && !resized) sums_.add(entry);
    if (!temporary || !resized) released_ += {entry.size, 1};
  }
  note_operation(thread, ledger_.taken());
}

void ShortLived::fill(SiteTable& table) {
  for (auto& [tid, thread] : threads_) settle(thread);
  sums_.fill(table);
}

}  // namespace quarl::report
