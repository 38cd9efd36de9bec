// SPDX-License-Identifier: Apache-2.0
#include "state/events/trouble_event.h"

#include "platform/libc_hooks.h"
#include "state/events/event.h"

namespace quarl {
namespace {

// Texts that were told, by their marks; the eldest is forgotten.
constexpr uint32_t kMost = 32;
constinit uint32_t told[kMost]{};
constinit uint32_t told_count = 0;

uint32_t mark_of(const char* text) {
  uint32_t mark = 1;
  while (*text != '\0') mark = mark * 31 + static_cast<unsigned char>(*text++);
  return mark;
}

// Threads that tell the same at once may both tell it.
bool told_before(uint32_t mark) {
  for (uint32_t& each : told) {
    if (__atomic_load_n(&each, __ATOMIC_RELAXED) == mark) return true;
  }
  const uint32_t place = __atomic_fetch_add(&told_count, 1, __ATOMIC_RELAXED) % kMost;
  __atomic_store_n(&told[place], mark, __ATOMIC_RELAXED);
  return false;
}

}  // namespace

void tell_trouble(const Trouble& trouble) {
  if (!events_wanted() || told_before(mark_of(trouble.text))) return;
  const Event event("trouble");
  if (!event) return;
  event.line().text("what", trouble.what).text("text", trouble.text, 1000).text("path", trouble.path, 1500);
  if (trouble.error != 0) event.line().text("error", error_text(trouble.error));
}

}  // namespace quarl
