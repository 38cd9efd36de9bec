// Tells the record of a block that a failed resize put back from that of a new one. Both are allocations in the log;
// the block that was put back was there before.
#pragma once

#include "report/analysis/live_entry.h"

namespace quarl::report {

class PutBacks {
 public:
  // To be asked of every allocation of a block, in the order of the records. A block that was put back has its old
  // number, which is lower than one that was seen; without numbers nothing tells the two apart.
  bool is_one(const OpRecord& record) const { return record.seq_num != 0 && record.seq_num <= last_; }
  // To be told every record.
  void passed(const OpRecord& record) { last_ = record.seq_num > last_ ? record.seq_num : last_; }

 private:
  uint32_t last_ = 0;
};

}  // namespace quarl::report
