#include "quarlheap/hooks/limits.h"

#include <stdlib.h>

#include "logs/statistics/statistics.h"
#include "platform/thread_cache.h"
#include "quarlheap/checking/fault_stop.h"

extern "C" {
constinit unsigned heap_limit = 0xFFFFFFFF;
constinit unsigned stack_limit = 0xFFFFFFFF;
constinit unsigned stack_use = 0;
}

namespace quarl {
namespace {

constexpr long kOneIn = 7;

bool past(uint32_t in_use, uint32_t size, const unsigned& limit) {
  return in_use + size > *static_cast<const volatile unsigned*>(&limit);
}

}  // namespace

bool draw_failure() {
  return !thread_cache().ending && random() % kOneIn == 0;
}

void check_limits(const Flags& flags, uint32_t size) {
  if (!flags.prof() || thread_cache().ending) return;
  const bool heap = flags.in_force(kHeapLimit) && past(held_bytes(), size, heap_limit);
  const bool stack = flags.in_force(kStackLimit) && past(stack_use, size, stack_limit);
  if (heap || stack) qr_fault_stop(current_tid(), false);
}

}  // namespace quarl
