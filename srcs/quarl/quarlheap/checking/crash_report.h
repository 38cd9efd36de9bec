// SPDX-License-Identifier: Apache-2.0
// What is said of a crash: an event, or a few lines on standard error where events are not wanted.
#pragma once

#include "platform/registers.h"
#include "quarlheap/checking/near_block.h"
#include "quarlheap/model/call_trace.h"

namespace quarl {

struct Crash {
  int number;        // of the signal
  const char* name;  // its name
  Registers at;      // where it came; all 0 when that is not known
  bool has_address;  // that could not be accessed
  uint32_t address;
  CallTrace trace;  // filled by trace_crash
  NearBlock near;   // filled by find_block_of_crash
};

// In this order. Each reads memory that a faulty program has had its hands on, and may itself crash over it: what is
// found out up to then is told all the same.
void trace_crash(Crash* crash);  // standard error has the signal, the address and the calls then
void find_block_of_crash(Crash* crash) REQUIRES(hook_mutex);
void tell_crash(const Crash& crash);

}  // namespace quarl
