#include "quarlheap/hooks/hook_call.h"

#include <unistd.h>

#include "config/loader.h"
#include "logs/log_files.h"
#include "platform/system.h"
#include "quarlheap/checking/heap_check.h"

namespace quarl {
namespace {

bool any_trigger(const Flags& flags, uint32_t triggers) {
  return (load_flags(slop_flags) & triggers) != 0 && flags.guard();
}

void reload() REQUIRES(hook_mutex) {
  clear_flag(cfg_flags, kReloadRequest);
  load_configuration();
  open_log_files();
}

// Seldom taken; kept out of the hooks' own code.
[[gnu::noinline]] void check_and_reload(uint32_t triggers) {
  const KeepErrno keep;
  const InsideChecker inside;  // a second level: memory made here is the checker's own
  const ScopedLock lock;
  if (Flags().reload_wanted()) reload();
  if (any_trigger(Flags(), triggers)) qr_heap_check();
}

uint32_t mapped_bytes(Address raw) {
  return round_up(chunk_before(raw).size(), static_cast<uint32_t>(getpagesize()));
}

}  // namespace

Flags enter_hook(uint32_t check_triggers) {
  const Flags flags;
  if (__builtin_expect(!flags.reload_wanted() && !any_trigger(flags, check_triggers), 1)) return flags;
  check_and_reload(check_triggers);
  return Flags();
}

void count_mapped_chunk(const Counters& counters, Address raw) {
  if (counters.process != nullptr && chunk_before(raw).mapped()) counters.chunk_mapped(mapped_bytes(raw));
}

void count_unmapped_chunk(const Counters& counters, Address raw) {
  if (counters.process != nullptr && chunk_before(raw).mapped()) counters.chunk_unmapped(mapped_bytes(raw));
}

}  // namespace quarl
