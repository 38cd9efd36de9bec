// SPDX-License-Identifier: Apache-2.0
// Regions of whole pages for mapped chunks, and a few that were given back and are kept for the next request: without
// them each block of some 100 KiB would cost two system calls and its pages anew. They lie below the mapping hooks,
// which are told of every mapping and unmapping of a chunk all the same. No lock; safe in a signal handler.
#pragma once

#include "platform/address.h"

namespace quarl::glibc {

inline constexpr uint32_t kPage = 4096;

struct Region {
  Address base;   // 0: none
  uint32_t size;  // bytes
  bool cleared;   // the kernel's zeros
};

// A region of at least so many bytes, a multiple of the page size; it is larger where regions of like size are kept.
Region take_region(uint32_t size);

// The same with an address that leaves the remainder `alignment` - page when divided by `alignment`, a power of two
// above the page size: the page behind it is aligned.
Region take_region_below(uint32_t alignment, uint32_t size);

// Whether such a region would be kept when it is given back. One that is not is as large as its mapping.
bool keeps_region(const Region& region);

// Keeps or unmaps it. False when the kernel would not take it back: its pages are free then, its addresses lost.
bool give_back_region(const Region& region);

// Changes the size of a region where it lies. False when there is no room, the region untouched.
bool stretch_region(const Region& region, uint32_t size);

// Moves what is in a region into the place of another, as much as that holds; the first is gone then.
void move_region(const Region& region, const Region& place);

// Unmaps all that are kept: somebody finds no memory. False when there were none.
bool drop_kept_regions();

// The application is about to map what it likes there, or to unmap all that is there: no region that overlaps the range
// is kept.
void leave_to_application(const AddressRange& range);

// What a region for a mapping of that size is made with.
uint32_t region_size(uint32_t size);

}  // namespace quarl::glibc
