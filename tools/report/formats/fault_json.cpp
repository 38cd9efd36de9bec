// SPDX-License-Identifier: Apache-2.0
#include "report/formats/fault_json.h"

#include "report/formats/operation_name.h"

namespace quarl::report {
namespace {

Json neighbour_json(Subject& subject, const std::optional<Neighbour>& neighbour, const TraceMember& trace) {
  if (!neighbour) return nullptr;
  const LiveEntry& block = neighbour->block;
  return {{"address", block.address},
          {"size", block.size},
          {"distance", neighbour->distance},
          {trace.key, trace.value(subject.symbolizer().trace(subject.ledger().traces().addresses(block.trace)))}};
}

}  // namespace

Json fault_json(Subject& subject, const Fault& fault, const TraceMember& trace) {
  const OpRecord& record = fault.record;
  return {{"fault", result_name(record.result)},
          {"address", record.start_addr},
          {"size", record.size},
          {"operation", operation_name(record.operation)},
          {"thread", record.tid},
          {"time", record.time},
          {"sequence", record.seq_num},
          {trace.key, trace.value(subject.symbolizer().trace(trace_of(record)))},
          {"below", neighbour_json(subject, fault.below, trace)},
          {"above", neighbour_json(subject, fault.above, trace)}};
}

}  // namespace quarl::report
