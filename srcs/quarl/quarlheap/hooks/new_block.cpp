#include "quarlheap/hooks/new_block.h"

#include "quarlheap/model/operation_record.h"
#include "quarlheap/model/used_list.h"

namespace quarl {

void* build_block(const NewBlock& block, Address raw) {
  const Address p = raw + block.place.offset;
  if (block.flags.header()) {
    fill_header(p, block.flags, block.size, block.op, block.trace, block.place.align_log2);
    const SoundBlock made(p, block.place.offset);
    link_block(made, header::last_byte(p, block.size, block.place.guard));
    if (block.flags.record_log()) record_allocation(made, block.trace);
  } else {
    keep_bare_block(pointer_to(p));
  }
  return pointer_to(p);
}

void* bare_block(void* raw) {
  keep_bare_block(raw);
  return raw;
}

[[gnu::flatten]] void* finish_block(const NewBlock& block, void* raw_block) {
  const Address raw = address_of(raw_block);
  if (!block.flags.tracked()) return bare_block(raw_block);
  const ScopedLock lock;
  const Counters counters = counters_for(block.flags);
  counters.allocated(block.op, block.size);
  count_mapped_chunk(counters, chunk_before(raw));
  return build_block(block, raw);
}

void count_failure(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace) {
  if (!flags.prof() && !flags.record_log()) return;
  const ScopedLock lock;
  counters_for(flags).failed(op);
  if (flags.record_log()) record_failure(flags, op, size, trace);
}

}  // namespace quarl
