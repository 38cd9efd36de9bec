#include "quarlheap/checking/crash_report.h"

#include "platform/print.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/near_block.h"
#include "quarlheap/model/block_row.h"
#include "quarlheap/model/interrupted_trace.h"
#include "state/process.h"

namespace quarl {
namespace {

// A full trace takes 64 times 11 characters.
using Report = TextBuffer<1024>;

void put_calls(const char* title, const uint32_t* calls, int depth, Report* report) {
  if (depth <= 0) return;
  report->format("quarl: %s", title);
  for (int i = 0; i < depth && i < kMaxTrace; ++i) report->format(" 0x%lx", static_cast<unsigned long>(calls[i]));
  report->format("\n");
}

void put_place(const NearBlock& near, Report* report) {
  const OpRecord& block = near.row;
  if (near.relation == BlockRelation::kInside) {
    report->format("quarl: the address is byte %d of", static_cast<int>(near.distance));
  } else {
    report->format("quarl: the address is %u bytes %s", near.gap, relation_text(near.relation));
  }
  report->format(" a block of %u bytes at 0x%lx, %s #%u by thread %u\n", block.size,
                 static_cast<unsigned long>(block.start_addr), operation_name(block.operation), block.seq_num,
                 block.tid);
}

}  // namespace

void report_crash(const Crash& crash) {
  Report report;
  report.format("quarl: %s ends process %d in thread %d", crash.signal, proc_pid, current_tid());
  if (crash.has_address) report.format(", address 0x%lx", static_cast<unsigned long>(crash.address));
  if (crash.registers.sp != 0) report.format(", at 0x%lx", static_cast<unsigned long>(crash.registers.pc));
  report.format("\n");
  CallTrace trace;
  if (crash.registers.sp != 0) capture_interrupted(crash.registers, &trace);
  put_calls("called from", trace.words, trace.depth, &report);
  write_to_standard_error(report);
}

void report_block_of_crash(const Crash& crash) {
  NearBlock near;
  if (crash.has_address) find_near_block(crash.address, &near);
  if (!near) return;
  Report report;
  put_place(near, &report);
  put_calls("allocated from", near.row.trace, near.row.stack_depth, &report);
  write_to_standard_error(report);
}

}  // namespace quarl
