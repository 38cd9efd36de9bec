// SPDX-License-Identifier: Apache-2.0
// Unmappings under way.
//
// The real call is made without the lock, and from its return on the addresses may be another mapping's. So the record
// of the mapping that it ends is found before the call and set aside: it stays on the list, for snapshots to show, but
// no other unmapping finds it. After the call it leaves the list, or can be found again.
#pragma once

#include <cstdint>

#include "logs/mappings/page_move.h"
#include "state/hook_lock.h"

namespace quarl {

struct TraceInfoEntry;

// What munmap(address, length) ends.
struct Unmapping {
  bool from_file;
  uint32_t size;  // bytes that it takes off the books
  int place;      // among those under way; -1: it ends no record
};

class Unmappings {
 public:
  Unmapping begin(uint32_t address, uint32_t length) REQUIRES(hook_mutex);

  // Right behind the real call, without the lock: known to a fork that comes before end().
  void tell_result(const Unmapping& unmapping, bool unmapped);

  void end(const Unmapping& unmapping, bool unmapped) REQUIRES(hook_mutex);

  // Before a fork: waits until no other thread is in its real call, so that the child knows how each went. A tenth of a
  // second at most, once for each.
  void await_results() REQUIRES(hook_mutex);

  // In a forked child: ends one that another thread of the parent, of which `task` forked, had begun. Returns false
  // when there is none left; `unmapped` says how the real call went.
  bool end_left_behind(int task, Unmapping* unmapping, bool* unmapped) REQUIRES(hook_mutex);

  // Entries have moved.
  void follow(const PageMove& move) REQUIRES(hook_mutex);

  void clear() REQUIRES(hook_mutex);

 private:
  enum Result : uint32_t { kUnknown, kUnmapped, kFailed, kNeverKnown };

  struct UnderWay {
    TraceInfoEntry* entry;  // null: free
    int task;               // of the thread
    uint32_t result;        // a Result
  };
  static constexpr int kMost = 1024;

  int free_place() REQUIRES(hook_mutex);

  UnderWay under_way_[kMost]{};
};

extern Unmappings unmappings;

}  // namespace quarl
