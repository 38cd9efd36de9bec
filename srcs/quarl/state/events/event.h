// SPDX-License-Identifier: Apache-2.0
// Events: a line of JSON for each thing worth telling, in the file that QUARL_EVENTS names (docs/events.md). Without
// the variable nothing here does anything.
//
// A line is built in static memory under a lock of its own, the innermost of all: whoever holds it takes no other. It
// is held with every signal held back, so that no handler on the same thread can want it, and nobody waits for it for
// ever: a line that does not get its turn in time counts as dropped. So an event may be told anywhere: under
// hook_mutex, in a signal handler, on a thread that ends.
#pragma once

#include "platform/annotations.h"
#include "platform/confinement.h"
#include "platform/held_signals.h"
#include "platform/system.h"
#include "state/events/json_line.h"

namespace quarl {

namespace detail {
extern bool events_on;
}

// Behind a filter of system calls nothing is told any more.
inline bool events_wanted() {
  return __builtin_expect(detail::events_on, 0) && !confined();
}

// One event, over its lifetime; the line is written at its end. Not two at a time on a thread.
//
//   if (Event event("parked"); event) event.line().number("thread", task);
class Event {
 public:
  explicit Event(const char* kind);
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  // False when it is not told: events are not wanted, or it is dropped.
  explicit operator bool() const { return ready_; }
  JsonLine& line() const;

  // A trace: return addresses, innermost first; those of modules that were not told yet write their lines first. Cut at
  // its outer end when the line is full, so it goes behind what is to be there for certain. Nothing of no addresses.
  void trace(const char* key, const uint32_t* addresses, int count) const;

  // The frame of one address.
  void frame(const char* key, uint32_t address) const;

 private:
  bool resolve(const uint32_t* addresses, int count) const;
  bool put(int index, const char* key) const;  // of those

  const KeepErrno keep_;
  const HeldSignals held_;
  bool taken_ = false;  // the lock
  bool ready_ = false;
};

// Called once by the constructor: reads QUARL_EVENTS.
void settle_events();

// The process is configured: tells `loaded`, of which `describe` adds what it is to say about that, then and in forked
// children; it runs under the lock of events. False when `loaded` was told already, without it.
using Describer = void (*)(JsonLine& line);
bool tell_loaded(Describer describe);

// Tells the modules that are mapped now and were not told yet, for what refers to them later without a line of its own.
void tell_modules();

// In a forked child, on its only thread: it tells its own `loaded` before its first event.
void leave_parent_events();

}  // namespace quarl
