// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/hooks/hook_call.h"

#include <unistd.h>

#include "platform/system.h"
#include "quarlheap/checking/fault_event.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/upkeep/reload.h"
#include "state/process.h"

namespace quarl {

[[gnu::cold, gnu::noinline]] Flags check_and_reload(uint32_t check_triggers) {
  const KeepErrno keep;
  const InsideChecker inside;  // a second level: memory made here is the checker's own
  const ScopedLock lock;
  if (hooks_installed == 0) return Flags();  // the process has ended the checker meanwhile
  if (Flags().reload_wanted()) reload();
  if (hook_mutex.ends_at_release()) return Flags();
  const FoundBy call(FoundBy::kCalledCheck);
  if (Flags().check_trigger(check_triggers)) qr_heap_check();
  return Flags();
}

[[gnu::noinline]] uint32_t mapped_bytes(ChunkWord chunk) {
  return round_up(chunk.size(), static_cast<uint32_t>(getpagesize()));
}

}  // namespace quarl
