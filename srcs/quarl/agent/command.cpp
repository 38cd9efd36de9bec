#include "agent/command.h"

#include <string.h>

#include "config/items.h"
#include "config/state/config_state.h"
#include "logs/statistics.h"
#include "quarlheap/checking/heap_check.h"

namespace quarl {
namespace {

void act(const Flags& flags) REQUIRES(hook_mutex) {
  if (flags.in_force(kMemCheck) && flags.guard()) qr_heap_check();
  if (flags.in_force(kPrintProfinfo | kProf)) print_statistics();
  if (flags.set(kReset)) {
    reset_statistics();
    clear_flag(cfg_flags, kReset);
  }
}

}  // namespace

void handle_packet(char* packet) {
  char line[kPacketSize + 1] = "";
  memcpy(line, packet, kPacketSize);
  const ScopedLock lock;
  const bool accepted = apply_line(line) == 0;
  memset(packet, 0, kPacketSize);
  if (accepted) act(Flags());
}

}  // namespace quarl
