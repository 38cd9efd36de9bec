#include "logs/mappings/mapping_records.h"

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "logs/mappings/mapping_index.h"
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

// Fresh memory of the kernel's: zero already.
void prepare_page(RecordPage* page) {
  page->first = reinterpret_cast<TraceInfoEntry*>(page + 1);
  for (int i = 0; i < QR_TRACEINFO_NUM; ++i) append_to(&unuse_head, &unuse_tail, page->first + i);
  append_to(&qr_mmap_block_head, &qr_mmap_block_tail, page);
}

bool add_page() {
  void* memory = map_own(page_bytes());
  if (memory == MAP_FAILED) {
    print(kStderr, "Get memory for mmap info failed and will unable to record mmap info since.\n");
    return false;
  }
  prepare_page(static_cast<RecordPage*>(memory));
  return true;
}

void remove_page(RecordPage* page) {
  for (int i = 0; i < QR_TRACEINFO_NUM; ++i) unlink_from(&unuse_head, &unuse_tail, page->first + i);
  unlink_from(&qr_mmap_block_head, &qr_mmap_block_tail, page);
  unmap_own(page, page_bytes());
}

}  // namespace

void set_up_record_pages() {
  QR_PAGE_SIZE = getpagesize();
  QR_TRACEINFO_NUM = static_cast<int>((page_bytes() - sizeof(RecordPage)) / sizeof(TraceInfoEntry));
}

TraceInfoEntry* take_mapping_entry() {
  if (unuse_head == nullptr && !add_page()) return nullptr;
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
  mapping_index.remove(entry);
  entry->record.size = size;
  mapping_index.add(entry);
}

void release_all_record_pages() {
  while (qr_mmap_block_head != nullptr) {
    RecordPage* page = qr_mmap_block_head;
    qr_mmap_block_head = page->next;
    unmap_own(page, page_bytes());
  }
  qr_mmap_block_tail = nullptr;
  useed_head = useed_tail = unuse_head = unuse_tail = nullptr;
  mapping_index.clear();
}

}  // namespace quarl
