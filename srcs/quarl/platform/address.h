// SPDX-License-Identifier: Apache-2.0
// Addresses of the 32-bit target as numbers, the form in which block headers and records hold them.
#pragma once

#include <cstdint>

namespace quarl {

using Address = uint32_t;

inline Address address_of(const void* pointer) {
  return static_cast<Address>(reinterpret_cast<uintptr_t>(pointer));
}
inline void* pointer_to(Address address) {
  return reinterpret_cast<void*>(static_cast<uintptr_t>(address));
}

// The 32-bit word at an address that is a multiple of 4.
inline uint32_t& word_at(Address address) {
  return *static_cast<uint32_t*>(pointer_to(address));
}

// Some of the address space.
struct AddressRange {
  Address start;
  uint32_t size;  // bytes

  constexpr bool holds(Address address) const { return address - start < size; }
  constexpr bool overlaps(const AddressRange& other) const {
    return size != 0 && other.size != 0 && (holds(other.start) || other.holds(start));
  }
  // What lies below a range that overlaps this one, and behind it.
  constexpr AddressRange below(const AddressRange& other) const {
    return {start, holds(other.start) ? other.start - start : 0};
  }
  constexpr AddressRange behind(const AddressRange& other) const {
    const Address end = other.start + other.size;
    return {end, holds(end) ? start + size - end : 0};
  }
};

constexpr uint32_t round_up(uint32_t value, uint32_t power_of_two) {
  return (value + power_of_two - 1) & ~(power_of_two - 1);
}

}  // namespace quarl
