// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/fault_report.h"

#include "logs/records/fault_log.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/model/block_row.h"
#include "quarlheap/model/operation_name.h"
#include "state/clock.h"
#include "state/held_text.h"

namespace quarl {
namespace {

struct Overrun {
  const char* title;
  const char* result;
};
constexpr Overrun kHeadOverrun = {
    "######  slop over occurs at front of a memory block whose detail info is as follows:", "memory slop over at head"};
constexpr Overrun kTailOverrun = {"###### slop over occurs at tail of a memory block whose detail info is as follows:",
                                  "memory slop over at tail"};

// A full trace takes 64 lines of 16 characters beside about 300 characters of details.
using Report = TextBuffer<2048>;

void describe(const OpRecord& record, const char* result, Report* report) {
  const int depth = static_cast<int8_t>(record.stack_depth);
  report->format("tid : %d\n", static_cast<int>(record.tid));
  if (clock_sec != 0) report->format("time: %d\n", static_cast<int>(record.time));
  report->format(
      "seq_num: %d\nmemory operation : %s\nresult : %s\nstack_depth : %d\nsize : %ld\nstart_addr : 0x%lx\n"
      "call trace :\n",
      static_cast<int>(record.seq_num), operation_name(record.operation), result, depth, static_cast<long>(record.size),
      static_cast<unsigned long>(record.start_addr));
  for (int i = 0; i < depth && i < kMaxTrace; ++i) {
    report->format("%d : 0x%lx\n", i, static_cast<unsigned long>(record.trace[i]));
  }
}

// Not inlined: the text is off the stack before the event is told.
[[gnu::noinline]] void print_overrun(const Overrun& overrun, const OpRecord& record) REQUIRES(hook_mutex) {
  Report report;
  report.format("%s\n", overrun.title);
  describe(record, overrun.result, &report);
  write_at_once(report);
}

void report_overrun(DoubtfulBlock block, FaultCode code) REQUIRES(hook_mutex) {
  const bool at_head = code == QR_FAULT_HEAD;
  OpRecord record;
  fill_fault_row(block, at_head ? kKindSlopHead : kKindSlopTail, &record);
  log_fault(record);
  print_overrun(at_head ? kHeadOverrun : kTailOverrun, record);
  tell_fault(block, code);
}

}  // namespace

void qr_report_fault(DoubtfulBlock block, int code) {
  TextBuffer<128> text;
  switch (code) {
    case QR_FAULT_DOUBLE_FREE:
      text.format("double free a same memory block whose address is : %p\n", pointer_to(block.p()));
      break;
    case QR_FAULT_HEAD:
    case QR_FAULT_TAIL:
      return report_overrun(block, static_cast<FaultCode>(code));
    case QR_FAULT_INVALID:
      text.format("memory invalid!\n");
      break;
    default:
      text.format("other fault!\n");
  }
  write_at_once(text);
  if (code == QR_FAULT_DOUBLE_FREE) tell_fault(block, QR_FAULT_DOUBLE_FREE);
}

}  // namespace quarl
