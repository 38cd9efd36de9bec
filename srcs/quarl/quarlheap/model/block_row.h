// SPDX-License-Identifier: Apache-2.0
// Blocks as rows for the logs: what a header says, in an OpRecord. In two ways: by the block's own flags, and by the
// configuration, for a header whose flags an overrun may have destroyed.
#pragma once

#include "logs/format.h"
#include "quarlheap/model/block_header.h"

namespace quarl {

// The head of the record. A null record: "Fill trace info failed\n" on standard error, nothing else.
void qr_fill_trace_info(Address p, OpRecord* record, RecordKind result);
void qr_fill_trace_info_cfg(Address p, OpRecord* record, RecordKind result);

// What is not there to be read counts as 0.

// Bytes from p down to the lowest trace word.
uint32_t qr_trace_offset(Address p, int depth);
uint32_t qr_trace_offset_cfg(Address p, int depth);

// A whole record of a block that is met on a walk, live as far as anybody knows.
void fill_live_row(DoubtfulBlock block, OpRecord* record);

// The same of one that was checked and has all fields. It replaces the record before it.
void fill_sound_row(const BoundedBlock& block, OpRecord* record);

// A whole record of a damaged block, kKindSlopHead or kKindSlopTail. The record is cleared.
void fill_fault_row(DoubtfulBlock block, RecordKind kind, OpRecord* record);

}  // namespace quarl
