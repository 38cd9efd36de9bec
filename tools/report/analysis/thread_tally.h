// SPDX-License-Identifier: Apache-2.0
// What each thread did: as the thread table of a log says, or counted from the records of a record log. A large block
// counts once, without the mapping that the allocator makes for it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "report/analysis/ledger.h"

namespace quarl::report {

struct ThreadTally {
  uint32_t tid = 0;
  std::string name;          // empty when counted from records
  uint64_t allocations = 0;  // calls of malloc, realloc, memalign and mmap that succeeded
  uint64_t releases = 0;     // calls of free, munmap, and the old blocks of realloc
  uint64_t failures = 0;
  uint64_t allocated = 0;  // bytes
  uint64_t released = 0;
  // Bytes of heap and anonymous mappings. Counted from records: of what the thread allocated. From the thread table:
  // what it allocated less what it released, whoever had allocated that.
  int64_t held = 0;
  std::optional<uint64_t> peak;      // of that, from the thread table
  bool peak_exact = true;            // no large block is in it twice, as which it counts for a moment
  std::optional<uint64_t> in_place;  // reallocs whose block stayed where it was; from the table, as the next
  std::optional<uint64_t> shrunk;    // reallocs to a smaller size
};

struct ThreadTallies {
  std::vector<ThreadTally> threads;  // most bytes allocated first
  uint32_t seconds = 0;              // that the tallies cover, 0 when unknown
  bool from_table = false;
  uint64_t calls = 0;  // that the table counted
};

// Of the taken entries of a thread table.
ThreadTallies tally_table(const std::vector<ThreadProf>& table);

// Counts records as they pass by.
class ThreadCount {
 public:
  // `ledger` has just taken the record.
  void add(const OpRecord& record, const Ledger& ledger);
  // With what each thread holds at the end, which `ledger` knows, and what only the table has.
  ThreadTallies tallies(const Ledger& ledger, const ThreadTallies& table) const;

 private:
  void undo_release(const OpRecord& restored);

  std::map<uint32_t, uint32_t> last_resized_;  // by thread: the address of the block that it resized last
  std::map<uint32_t, ThreadTally> by_tid_;
};

}  // namespace quarl::report
