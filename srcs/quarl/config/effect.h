// SPDX-License-Identifier: Apache-2.0
// What an item asks for beyond the settings. Config only says so: whoever applied the line carries it out, right after
// the line and before the next one.
#pragma once

#include "config/line.h"

namespace quarl {

struct Effect {
  enum Kind {
    kNone,
    kNameLogs,          // text: the prefix of the record log's name, "" for none
    kHandleDumpSignal,  // number: the signal
    kOfferDumpSignal,   // the same, a default: nobody has named it
    kMakeStatistics,    // the block of the process; without memory for it QUARL_PROF stays off
    kMakeThreadTable,   // the table of threads; without memory for it QUARL_THREAD stays off
    kRefuseThreads,     // the same, but the item is refused: there are no statistics of the process
    kTraceMappings,     // number: 1 or 0, for QR_TRACE_MMAP and the statistics
    kSeedRandom,
    kSetTimerSignal,     // number: the signal, for qr_sig_num
    kStartTimer,         // number: seconds
    kScheduleSnapshots,  // number: seconds between them, from now on
    kRefuseSnapshots,    // automatic snapshots without the timer: the process ends
    kHandleCheckSignal,  // number: the signal
  };
  Kind kind = kNone;
  int number = 0;
  char text[kMaxValue + 1] = {};
};

}  // namespace quarl
