// SPDX-License-Identifier: Apache-2.0
// Records of live mappings, kept outside the heap in pages of their own.
//
//   page:  link to previous page, link to next page, entries in use, address of first entry, entries...
//   entry: an OpRecord, link to previous entry, link to next entry
//
// Every entry is on one of two lists: those in use (useed_*), oldest first, and free ones (unuse_*).
//
// The hooks never see these pages come and go. One that is no longer needed is kept for the next time: a program that
// maps, or allocates, one thing at a time would have a page made and unmade each time.
#pragma once

#include <cstdint>

#include "logs/format.h"
#include "platform/address.h"
#include "platform/annotations.h"
#include "state/hook_lock.h"

namespace quarl {

struct TraceInfoEntry {
  OpRecord record;
  TraceInfoEntry* prev;
  TraceInfoEntry* next;
};
static_assert(sizeof(void*) != 4 || sizeof(TraceInfoEntry) == 288);

struct RecordPage {
  RecordPage* prev;
  RecordPage* next;
  uint32_t used;
  TraceInfoEntry* first;
};
static_assert(sizeof(void*) != 4 || sizeof(RecordPage) == 16);

}  // namespace quarl

// The application and a debugger can see these.
extern "C" {
extern QUARL_EXPORT quarl::TraceInfoEntry* useed_head;
extern QUARL_EXPORT quarl::TraceInfoEntry* useed_tail;
extern QUARL_EXPORT quarl::TraceInfoEntry* unuse_head;
extern QUARL_EXPORT quarl::TraceInfoEntry* unuse_tail;
extern QUARL_EXPORT quarl::RecordPage* qr_mmap_block_head;
extern QUARL_EXPORT quarl::RecordPage* qr_mmap_block_tail;
extern QUARL_EXPORT int QR_PAGE_SIZE;      // bytes, set at start-up
extern QUARL_EXPORT int QR_PAGE_NUM;       // memory pages in one record page
extern QUARL_EXPORT int QR_TRACEINFO_NUM;  // entries in one record page, set at start-up
}

namespace quarl {

void set_up_record_pages();

// A free entry, now on the list of those in use; a new page is mapped when there is none. Null when that fails, with a
// message on standard error. The caller fills it, then has it indexed.
TraceInfoEntry* take_mapping_entry() REQUIRES(hook_mutex);

// Makes a filled entry known to find_mapping.
void index_mapping(TraceInfoEntry* entry) REQUIRES(hook_mutex);

// Clears the entry and puts it back; a page without entries in use is given up.
void release_mapping_entry(TraceInfoEntry* entry) REQUIRES(hook_mutex);

// The oldest live mapping that munmap(address, length) ends: the same region, or an anonymous one with the same end.
TraceInfoEntry* find_mapping(uint32_t address, uint32_t length) REQUIRES(hook_mutex);

// The mapping has another size from now on.
void resize_mapping_entry(TraceInfoEntry* entry, uint32_t size) REQUIRES(hook_mutex);

// The application is about to map what it likes at these addresses, or to unmap all that is there: whatever of the
// records lies there moves away. False when there is no memory elsewhere.
bool leave_to_application(const AddressRange& range) REQUIRES(hook_mutex);

// At exit.
void release_all_record_pages() REQUIRES(hook_mutex);

}  // namespace quarl
