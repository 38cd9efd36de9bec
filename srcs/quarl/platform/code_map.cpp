// SPDX-License-Identifier: Apache-2.0
#include "platform/code_map.h"

#include "platform/system.h"

namespace quarl {

namespace {

struct Range {
  uint32_t low;
  uint32_t high;
};

// Sorted by address, as the kernel lists them; neighbours are joined.
struct RangeTable {
  static constexpr int kMax = 512;
  Range ranges[kMax];
  int count = 0;

  void add(uint32_t low, uint32_t high) {
    if (count > 0 && ranges[count - 1].high == low) {
      ranges[count - 1].high = high;
    } else if (count < kMax) {
      ranges[count++] = {low, high};
    }
  }

  bool contains(uint32_t address) const {
    int from = 0;
    int to = count;
    while (from < to) {
      const int middle = (from + to) / 2;
      if (address >= ranges[middle].high) {
        from = middle + 1;
      } else {
        to = middle;
      }
    }
    return from < count && address >= ranges[from].low;
  }
};

constinit RangeTable startup_code{};  // written by the constructor only

// Looking again costs a read of the whole maps text, so garbage addresses must not cause it each time: after a look
// that told nothing new, twice as many misses as before have to pass.
constinit uint32_t misses = 0;
constinit uint32_t misses_allowed = 0;
constexpr uint32_t kMaxMisses = 1 << 16;

bool time_to_look_again() {
  if (__atomic_add_fetch(&misses, 1, __ATOMIC_RELAXED) <= __atomic_load_n(&misses_allowed, __ATOMIC_RELAXED)) {
    return false;
  }
  __atomic_store_n(&misses, 0, __ATOMIC_RELAXED);
  return true;
}

bool mapped_as_code_now(uint32_t address) {
  const KeepErrno keep;
  MapsReader maps;
  MapsLine line;
  while (maps.next(&line)) {
    if (address >= line.low && address < line.high) return line.executable;
  }
  return false;
}

}  // namespace

void learn_startup_code(const MapsLine& line) {
  if (line.executable) startup_code.add(static_cast<uint32_t>(line.low), static_cast<uint32_t>(line.high));
}

bool is_startup_code(uint32_t address) {
  return startup_code.contains(address);
}

CodeKind code_kind(uint32_t address) {
  if (startup_code.count == 0) return CodeKind::kLate;
  if (startup_code.contains(address)) return CodeKind::kStartup;
  if (!time_to_look_again()) return CodeKind::kNone;
  const bool found = mapped_as_code_now(address);
  const uint32_t allowed = __atomic_load_n(&misses_allowed, __ATOMIC_RELAXED);
  const uint32_t doubled = allowed >= kMaxMisses ? kMaxMisses : allowed * 2 + 1;
  __atomic_store_n(&misses_allowed, found ? 0 : doubled, __ATOMIC_RELAXED);
  return found ? CodeKind::kLate : CodeKind::kNone;
}

}  // namespace quarl
