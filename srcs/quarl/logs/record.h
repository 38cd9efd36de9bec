// Operation records: one for every hooked operation while QUARL_OUTPUT_LOG is in force. Without an allocation, and
// without a system call until the buffer is full.
#pragma once

#include "logs/format.h"
#include "quarlheap/model/block.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

// A record built from block p: kKindAllocated from its header alone; kKindReleased with the present thread, time and
// trace.
void record_block_operation(Address p, const Flags& flags, Operation op, RecordKind kind, const CallTrace& trace)
    REQUIRES(hook_mutex);

// A record without a block.
void record_failed_operation(const Flags& flags, Operation op, uint32_t size, const CallTrace& trace)
    REQUIRES(hook_mutex);

// A copy of a mapping's record.
void record_mapping(const OpRecord& record) REQUIRES(hook_mutex);

// Who and when, as release, failure and mapping records carry it: time and a fresh sequence number while
// QUARL_HEAD_TIME is in force, the thread while QUARL_HEAD_TID is.
void stamp_time(const Flags& flags, OpRecord* record) REQUIRES(hook_mutex);
void stamp_thread(const Flags& flags, OpRecord* record);
void set_record_trace(const CallTrace& trace, OpRecord* record);

// A record of live block p in the primary buffer, on its way to the snapshot log.
void record_live_block(Address p) REQUIRES(hook_mutex);
// The same record, anywhere.
void fill_live_block_record(Address p, OpRecord* record);

}  // namespace quarl
