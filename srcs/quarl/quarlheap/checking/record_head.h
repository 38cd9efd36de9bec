// Reading a block's header into the 24-byte head of an OpRecord, in two ways: by the block's own flags, and by the
// configuration, for a header whose flags an overrun may have destroyed.
#pragma once

#include "logs/format.h"
#include "quarlheap/model/block.h"

namespace quarl {

// A null record: "Fill trace info failed\n" on standard error, nothing else.
void qr_fill_trace_info(Address p, OpRecord* record, RecordKind result);
void qr_fill_trace_info_cfg(Address p, OpRecord* record, RecordKind result);

// Bytes from p down to the lowest trace word.
uint32_t qr_trace_offset(Address p, int depth);
uint32_t qr_trace_offset_cfg(Address p, int depth);

// Fills the trace words of a record whose head is filled: depth words of the block, at most 64, zeros behind them.
void copy_block_trace(Address lowest_word, int depth, OpRecord* record);

}  // namespace quarl
