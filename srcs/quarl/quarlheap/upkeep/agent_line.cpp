#include "quarlheap/upkeep/agent_line.h"

#include "config/configuration.h"
#include "logs/statistics/statistics.h"
#include "quarlheap/checking/heap_check.h"
#include "quarlheap/upkeep/effects.h"
#include "state/process.h"

namespace quarl {
namespace {

void act(const Flags& flags) REQUIRES(hook_mutex) {
  if (flags.in_force(kMemCheck) && flags.guard()) qr_heap_check();
  if (flags.prints_statistics()) print_statistics();
  if (flags.set(kReset)) {
    reset_statistics();
    clear_flag(settings.cfg_flags, kReset);
  }
}

}  // namespace

void take_agent_line(const char* line) {
  const ScopedLock lock;
  if (hooks_installed == 0) return;  // the process ends
  if (apply_line(line, carry_out) == 0 && !hook_mutex.ends_at_release()) act(Flags());
}

}  // namespace quarl
