// SPDX-License-Identifier: Apache-2.0
// The one pass over the records of a snapshot: whatever is learnt from them is gathered while it goes on.
#pragma once

#include <optional>

#include "report/analysis/ledger.h"
#include "report/analysis/ordered_records.h"
#include "report/analysis/thread_tally.h"
#include "report/analysis/timeline.h"

namespace quarl::report {

// What is asked besides what is held. Each costs time at every record of a record log.
struct Wanted {
  bool timeline = false;
  bool threads = false;
};

// Up to where a record log is read: to its end, or as far as the record of that number, or of that time.
struct Moment {
  std::optional<uint32_t> number;
  std::optional<uint32_t> time;  // seconds since the epoch
};

class RecordPass {
 public:
  // Reads no record yet. `log`, which `snapshot` lies in, must outlive the pass. `observer`, if there is one, sees each
  // record after the ledger has taken it.
  RecordPass(const Log& log, const Snapshot& snapshot, Wanted wanted, Ledger::Observer observer = nullptr);
  RecordPass(const RecordPass&) = delete;
  RecordPass& operator=(const RecordPass&) = delete;

  // All before anything is asked. The watcher must outlive the reading.
  void watch(HeldWatcher& watcher) { ledger_.watch(watcher); }
  void choose_faults(FaultList::Takes takes) { ledger_.choose_faults(std::move(takes)); }
  void read_until(const Moment& moment) { moment_ = moment; }
  // The ledger as it is now: for watchers, which are told while it is filled.
  const Ledger& filling() const { return ledger_; }

  // These go on to the end, or to the moment.
  const Ledger& ledger() { return whole().ledger_; }
  uint64_t records() { return whole().stream_.done(); }  // read, damaged ones included
  uint64_t damaged() { return whole().stream_.damaged(); }
  // The moment of its end, seconds since the epoch, 0 when unknown: the last write, or the last records; where it is
  // read up to a moment, the latest record until then, for which the reading goes on.
  uint32_t now();
  // Of the first record that has one, 0 when none has; the reading goes no further than that.
  uint32_t first_time();
  // Of a record log: numbers that were given out between its records and have none, and the first of all.
  uint64_t missing() { return whole().sequence_.missing; }
  uint32_t first_number() { return whole().sequence_.first; }
  // Of a record log, once; must be wanted.
  Timeline timeline() { return whole().timeline_.value().finish(); }
  // From the thread table; or counted in a record log whose table is not there, or older than the records (its process
  // was killed). Must be wanted.
  ThreadTallies threads();

 private:
  // The times of records, of which 0 is none: less by one it is the largest number, which never is the smallest.
  struct Times {
    uint32_t before_smallest = UINT32_MAX;
    uint32_t largest = 0;
    uint32_t first = 0;  // in the order of the records
    void add(std::span<const OpRecord> records);
    uint32_t span() const { return largest - (before_smallest + 1); }
  };
  // The numbers of records, which rise by one in the order of the file. Records of older blocks (a failed resize puts
  // one back, faults tell of one) and records without a number (0) are passed over.
  struct Sequence {
    uint32_t first = 0;
    uint32_t last = 0;
    uint64_t missing = 0;
    void add(std::span<const OpRecord> records);
  };
  RecordPass& whole();
  std::span<const OpRecord> next();
  uint32_t last_time() const;
  bool is_past(const OpRecord& record) const;
  bool cut(std::span<const OpRecord>& batch) const;
  void go_on(bool to_first_time);
  void finish();
  void add_uncounted_faults();
  Ledger::Observer observers();
  uint32_t covered_seconds();

  const Log& log_;
  const Snapshot& snapshot_;
  RecordStream stream_;
  OrderedRecords ordered_{stream_};  // of a record log
  Ledger ledger_;
  Times times_;
  Sequence sequence_;
  bool ended_ = false;
  Moment moment_;
  std::optional<ThreadTallies> table_;
  std::optional<ThreadCount> thread_count_;
  std::optional<RecordTimeline> timeline_;
  Ledger::Observer observer_;
};

}  // namespace quarl::report
