// The call trace: return addresses from the hook back towards main or a thread's start, found by walking the chain of
// frame pointers. Reads memory only: no lock, no allocation. Leaves neither the calling thread's stack nor the
// process's code, so that garbage in a frame pointer ends the trace and nothing else.
#pragma once

#include <cstdint>

#include "logs/format.h"

namespace quarl {

struct CallTrace {
  int depth = 0;              // valid words, [0, kMaxTrace]
  uint32_t words[kMaxTrace];  // entry 0 is nearest to the hook; undefined from depth on
};

// Where a walk stops: a return address strictly between start and end is its last entry. 0, 0 stops nothing.
struct CodeRange {
  uint32_t start;
  uint32_t end;
  bool holds(uint32_t address) const { return start < address && address < end; }
};
extern CodeRange main_range;
extern CodeRange clone_range;

// Fills buf[0 .. count) with at most max return addresses, the caller's caller first; returns count. The caller must
// be the hook itself: its own frame is the first one that is stored.
int capture_trace(uint32_t* buf, int max);

}  // namespace quarl
