// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/crash_report.h"

#include "platform/print.h"
#include "platform/thread_cache.h"
#include "quarlheap/model/interrupted_trace.h"
#include "quarlheap/model/operation_name.h"
#include "state/events/event.h"
#include "state/process.h"
#include "unwind.h"

namespace quarl {
namespace {

// A full trace takes 64 times 11 characters.
using Report = TextBuffer<1024>;

bool place_is_known(const Crash& crash) {
  return crash.at.sp != 0;
}

uint32_t instruction(const Crash& crash) {
  return crash.at.pc & ~frame::kThumbBit;
}

unsigned long digits(uint32_t address) {
  return address;
}

void put_calls(const char* title, const uint32_t* calls, int depth, Report* report) {
  if (depth <= 0) return;
  report->format("quarl: %s", title);
  for (int i = 0; i < depth && i < kMaxTrace; ++i) report->format(" 0x%lx", digits(calls[i]));
  report->format("\n");
}

void report_signal(const Crash& crash) {
  Report report;
  report.format("quarl: %s ends process %d in thread %d", crash.name, proc_pid, current_tid());
  if (crash.has_address) report.format(", address 0x%lx", digits(crash.address));
  if (place_is_known(crash)) report.format(", at 0x%lx", digits(instruction(crash)));
  report.format("\n");
  put_calls("called from", crash.trace.words, crash.trace.depth, &report);
  write_to_standard_error(report);
}

void put_place(const NearBlock& near, Report* report) {
  if (near.relation == BlockRelation::kInside) {
    report->format("quarl: the address is byte %d of", static_cast<int>(near.distance));
  } else {
    const bool above = near.relation == BlockRelation::kBehind;
    const char* side = !above ? "in front of" : near.block.sized ? "behind" : "behind the first byte of";
    report->format("quarl: the address is %u bytes %s", near.gap, side);
  }
}

void put_block(const KnownBlock& block, Address p, Report* report) {
  if (block.sized) report->format(" a block of %u bytes at 0x%lx", block.row.size, digits(p));
  if (!block.sized) report->format(" a block at 0x%lx whose header is damaged", digits(p));
  const OpRecord& row = block.row;
  if (block.made) report->format(", %s #%u by thread %u", operation_name(row.operation), row.seq_num, row.tid);
  report->format("\n");
  if (block.made) put_calls("allocated from", row.trace, row.stack_depth, report);
}

void report_block(const NearBlock& near) {
  if (!near) return;
  Report report;
  put_place(near, &report);
  put_block(near.block, near.p, &report);
  write_to_standard_error(report);
}

const char* name_of(BlockRelation relation) {
  switch (relation) {
    case BlockRelation::kInside:
      return "inside";
    case BlockRelation::kBehind:
      return "behind";
    case BlockRelation::kBefore:
      return "before";
    case BlockRelation::kNone:
      break;
  }
  return nullptr;
}

void put_near(const Event& event, const NearBlock& near) {
  JsonLine& line = event.line().open_object("near");
  const bool known = near.block.sized || near.relation == BlockRelation::kBefore;
  line.text("relation", known ? name_of(near.relation) : nullptr).integer("distance", near.distance);
  put_known(event, near.p, near.block);
  line.close();
}

}  // namespace

void trace_crash(Crash* crash) {
  if (place_is_known(*crash)) capture_interrupted(crash->at, &crash->trace);
  if (!events_wanted()) report_signal(*crash);
}

void find_block_of_crash(Crash* crash) {
  if (crash->has_address) find_near_block(crash->address, &crash->near);
}

void tell_crash(const Crash& crash) {
  if (!events_wanted()) return report_block(crash.near);
  const Event event("crash");
  if (!event) return;
  event.line().number("signal", static_cast<uint32_t>(crash.number));
  if (crash.has_address) event.line().address("at", crash.address);
  if (place_is_known(crash)) event.frame("pc", instruction(crash));
  if (crash.near) put_near(event, crash.near);
  event.trace("trace", crash.trace.words, crash.trace.depth);
}

}  // namespace quarl
