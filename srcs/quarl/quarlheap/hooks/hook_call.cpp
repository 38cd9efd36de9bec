#include "quarlheap/hooks/hook_call.h"

#include <unistd.h>

#include "config/loader.h"
#include "logs/log_files.h"
#include "platform/system.h"
#include "quarlheap/checking/heap_check.h"

namespace quarl {
namespace {

void reload() REQUIRES(hook_mutex) {
  clear_flag(cfg_flags, kReloadRequest);
  load_configuration();
  open_log_files();
}

}  // namespace

[[gnu::cold, gnu::noinline]] Flags check_and_reload(uint32_t check_triggers) {
  const KeepErrno keep;
  const InsideChecker inside;  // a second level: memory made here is the checker's own
  const ScopedLock lock;
  if (Flags().reload_wanted()) reload();
  if (Flags().check_trigger(check_triggers)) qr_heap_check();
  return Flags();
}

[[gnu::noinline]] uint32_t mapped_bytes(ChunkWord chunk) {
  return round_up(chunk.size(), static_cast<uint32_t>(getpagesize()));
}

}  // namespace quarl
