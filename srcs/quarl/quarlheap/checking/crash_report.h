// What is said of a crash where nobody follows the events.
#pragma once

#include "platform/registers.h"
#include "state/hook_lock.h"

namespace quarl {

struct Crash {
  const char* signal;   // its name
  Registers registers;  // where it came; all 0 when that is not known
  bool has_address;     // that could not be accessed
  uint32_t address;
};

// A few lines on standard error: the signal, the address, the calls that led there, and the block that the address lies
// in or next to, when the list of blocks can be looked at.
void report_crash(const Crash& crash);
void report_block_of_crash(const Crash& crash) REQUIRES(hook_mutex);

}  // namespace quarl
