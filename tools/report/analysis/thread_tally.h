// What each thread did: as the thread table of a log says, or counted from the records of a record log.
#pragma once

#include <map>
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
  uint64_t held = 0;  // bytes of heap and anonymous mappings; modulo 2^32 from the thread table
  uint64_t peak = 0;
  uint64_t in_place = 0;  // reallocs whose block stayed where it was
  uint64_t shrunk = 0;    // reallocs to a smaller size
};

struct ThreadTallies {
  std::vector<ThreadTally> threads;  // most bytes allocated first
  uint32_t seconds = 0;              // that the tallies cover, 0 when unknown
  bool from_table = false;
};

// Of the taken entries of a thread table.
ThreadTallies tally_table(const std::vector<ThreadProf>& table);

// Counts records as they pass by.
class ThreadCount {
 public:
  void add(const OpRecord& record);
  // With what each thread holds at the end, which `ledger` knows.
  ThreadTallies tallies(const Ledger& ledger) const;

 private:
  std::map<uint32_t, ThreadTally> by_tid_;
};

}  // namespace quarl::report
