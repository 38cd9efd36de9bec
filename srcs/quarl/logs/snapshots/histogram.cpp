// SPDX-License-Identifier: Apache-2.0
#include "logs/snapshots/histogram.h"

#include "platform/print.h"
#include "state/settings.h"

namespace quarl {

void Histogram::print() const {
  TextBuffer<512> table;
  table.format("Prof info of unfreed memory blocks is as follows:\n");
  table.format("\nLevel   size(byte)      unfree memory num\n");
  long long bound = 10;
  table.format("%-5d   %-5d - %-5lld   %d\n", 0, 0, bound * 10 - 1, counts_[0]);
  for (int level = 1; level < kLevels - 1; ++level) {
    bound *= 10;
    table.format("%-5d   %-5lld - %-5lld   %d\n", level, bound, bound * 10 - 1, counts_[level]);
  }
  table.format("%-5d   Large           %d\n", kLevels - 1, counts_[kLevels - 1]);
  write_message(kStdout, table);
}

void Histogram::print_if_wanted(uint32_t live) const {
  const Flags flags;
  if (!flags.prints_statistics()) return;
  if (live > 0) {
    print();
  } else if (flags.header()) {
    quarl::print(kStdout, "\nNo memory block unfree.\n");
  }
}

}  // namespace quarl
