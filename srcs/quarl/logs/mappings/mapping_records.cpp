// SPDX-License-Identifier: Apache-2.0
#include "logs/mappings/mapping_records.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "logs/mappings/mapping_index.h"
#include "logs/mappings/unmappings.h"
#include "platform/print.h"
#include "state/own_memory.h"
#include "state/settings.h"

using quarl::RecordPage;
using quarl::TraceInfoEntry;

extern "C" {
constinit TraceInfoEntry* useed_head = nullptr;
constinit TraceInfoEntry* useed_tail = nullptr;
constinit TraceInfoEntry* unuse_head = nullptr;
constinit TraceInfoEntry* unuse_tail = nullptr;
constinit RecordPage* qr_mmap_block_head = nullptr;
constinit RecordPage* qr_mmap_block_tail = nullptr;
constinit int QR_PAGE_SIZE = 0;
constinit int QR_PAGE_NUM = 4;
constinit int QR_TRACEINFO_NUM = 0;
}

namespace quarl {
namespace {

template <typename Node>
void append_to(Node** head, Node** tail, Node* node) {
  node->prev = *tail;
  node->next = nullptr;
  if (*tail != nullptr) (*tail)->next = node;
  *tail = node;
  if (*head == nullptr) *head = node;
}

template <typename Node>
void unlink_from(Node** head, Node** tail, Node* node) {
  (node->prev != nullptr ? node->prev->next : *head) = node->next;
  (node->next != nullptr ? node->next->prev : *tail) = node->prev;
}

size_t page_bytes() {
  return static_cast<size_t>(QR_PAGE_NUM) * static_cast<size_t>(QR_PAGE_SIZE);
}

// The first page on the list that lies below the entry and holds it.
RecordPage* page_of(const TraceInfoEntry* entry) {
  const auto address = reinterpret_cast<uintptr_t>(entry);
  for (RecordPage* page = qr_mmap_block_head; page != nullptr; page = page->next) {
    const auto start = reinterpret_cast<uintptr_t>(page);
    if (start < address && address - start < page_bytes()) return page;
  }
  return nullptr;
}

// Free entries, linked to each other.
struct FreeEntries {
  TraceInfoEntry* head = nullptr;
  TraceInfoEntry* tail = nullptr;
};

// The page that was given up last, or null, and its entries when they are linked still.
constinit RecordPage* spare_page GUARDED_BY(hook_mutex) = nullptr;
constinit FreeEntries spare_entries GUARDED_BY(hook_mutex){};

void drop_spare_page(const AddressRange& range) REQUIRES(hook_mutex) {
  if (spare_page != nullptr) unmap_guarded(spare_page, page_bytes(), range);
  spare_page = nullptr;
}

// Of the kernel's fresh memory, or a spare page whose links lead anywhere: zero but for links, which are written here.
FreeEntries link_entries(RecordPage* page) {
  page->first = reinterpret_cast<TraceInfoEntry*>(page + 1);
  FreeEntries entries;
  for (int i = 0; i < QR_TRACEINFO_NUM; ++i) append_to(&entries.head, &entries.tail, page->first + i);
  return entries;
}

// Takes the entries of a page off the list of free ones, where all of them are. Those of the only page are all that
// there are: they stay linked, and are returned.
FreeEntries take_entries_off(RecordPage* page) {
  FreeEntries entries;
  if (qr_mmap_block_head == page && page->next == nullptr) {
    entries = {unuse_head, unuse_tail};
    unuse_head = unuse_tail = nullptr;
  } else {
    for (int i = 0; i < QR_TRACEINFO_NUM; ++i) unlink_from(&unuse_head, &unuse_tail, page->first + i);
  }
  return entries;
}

// When no entry is free.
bool add_page() REQUIRES(hook_mutex) {
  void* memory = spare_page != nullptr ? spare_page : map_guarded(page_bytes(), {});
  if (memory == MAP_FAILED) return false;
  auto* page = static_cast<RecordPage*>(memory);
  const bool linked = spare_page != nullptr && spare_entries.head != nullptr;
  const FreeEntries entries = linked ? spare_entries : link_entries(page);
  spare_page = nullptr;
  unuse_head = entries.head;
  unuse_tail = entries.tail;
  append_to(&qr_mmap_block_head, &qr_mmap_block_tail, page);
  return true;
}

void remove_page(RecordPage* page) REQUIRES(hook_mutex) {
  const FreeEntries entries = take_entries_off(page);
  unlink_from(&qr_mmap_block_head, &qr_mmap_block_tail, page);
  if (spare_page != nullptr) {
    unmap_guarded(page, page_bytes(), {});
  } else {
    spare_page = page;
    spare_entries = entries;
  }
}

void follow_in_list(const PageMove& move, TraceInfoEntry** head, TraceInfoEntry** tail) {
  move.follow(head);
  move.follow(tail);
  for (TraceInfoEntry* entry = *head; entry != nullptr; entry = entry->next) {
    move.follow(&entry->prev);
    move.follow(&entry->next);
  }
}

// Every pointer into the page leads to its copy.
void follow(const PageMove& move) REQUIRES(hook_mutex) {
  move.follow(&qr_mmap_block_head);
  move.follow(&qr_mmap_block_tail);
  for (RecordPage* page = qr_mmap_block_head; page != nullptr; page = page->next) {
    move.follow(&page->prev);
    move.follow(&page->next);
    move.follow(&page->first);
  }
  follow_in_list(move, &useed_head, &useed_tail);
  follow_in_list(move, &unuse_head, &unuse_tail);
  mapping_index.follow(move);
  unmappings.follow(move);
}

AddressRange range_of(const RecordPage* page) {
  return guarded_range(page, page_bytes());
}

// Copies the page to where it may stay. Null when there is no memory.
RecordPage* move_page(RecordPage* page, const AddressRange& range) REQUIRES(hook_mutex) {
  void* memory = map_guarded(page_bytes(), range);
  if (memory == MAP_FAILED) return nullptr;
  memcpy(memory, page, page_bytes());
  follow({{address_of(page), static_cast<uint32_t>(page_bytes())}, address_of(memory)});
  unmap_guarded(page, page_bytes(), range);
  return static_cast<RecordPage*>(memory);
}

}  // namespace

void set_up_record_pages() {
  QR_PAGE_SIZE = getpagesize();
  QR_TRACEINFO_NUM = static_cast<int>((page_bytes() - sizeof(RecordPage)) / sizeof(TraceInfoEntry));
}

TraceInfoEntry* take_mapping_entry() {
  if (!mapping_index.make_room() || (unuse_head == nullptr && !add_page())) {
    print_failure(kStderr, {"memory"}, "Get memory for mmap info failed and will unable to record mmap info since.\n");
    return nullptr;
  }
  TraceInfoEntry* entry = unuse_head;
  if (entry == nullptr) return nullptr;  // QR_PAGE_NUM, which the application sees, leaves no room for an entry
  unlink_from(&unuse_head, &unuse_tail, entry);
  append_to(&useed_head, &useed_tail, entry);
  if (RecordPage* page = page_of(entry)) ++page->used;
  return entry;
}

void release_mapping_entry(TraceInfoEntry* entry) {
  mapping_index.remove(entry);
  unlink_from(&useed_head, &useed_tail, entry);
  memset(entry, 0, sizeof *entry);
  append_to(&unuse_head, &unuse_tail, entry);
  RecordPage* page = page_of(entry);
  if (page != nullptr && --page->used == 0) remove_page(page);
}

void index_mapping(TraceInfoEntry* entry) {
  mapping_index.add(entry);
}

TraceInfoEntry* find_mapping(uint32_t address, uint32_t length) {
  return mapping_index.find(address, length);
}

void resize_mapping_entry(TraceInfoEntry* entry, uint32_t size) {
  mapping_index.resize(entry, size);
}

bool leave_to_application(const AddressRange& range) {
  if (spare_page != nullptr && range.overlaps(range_of(spare_page))) drop_spare_page(range);
  for (RecordPage* page = qr_mmap_block_head; page != nullptr; page = page->next) {
    if (range.overlaps(range_of(page))) page = move_page(page, range);
    if (page == nullptr) return false;
  }
  return mapping_index.leave(range);
}

void release_all_record_pages() {
  while (qr_mmap_block_head != nullptr) {
    RecordPage* page = qr_mmap_block_head;
    qr_mmap_block_head = page->next;
    unmap_guarded(page, page_bytes(), {});
  }
  qr_mmap_block_tail = nullptr;
  useed_head = useed_tail = unuse_head = unuse_tail = nullptr;
  drop_spare_page({});
  mapping_index.clear();
  unmappings.clear();
}

}  // namespace quarl
