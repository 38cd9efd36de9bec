// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/checking/parked_threads.h"

namespace quarl {

constinit ParkedThread parked_threads[kParkedPlaces]{};

void note_parked(int tid, StopReason reason) {
  for (ParkedThread& place : parked_threads) {
    int32_t nobody = 0;
    if (!__atomic_compare_exchange_n(&place.tid, &nobody, tid, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED)) continue;
    place.reason = reason;
    return;
  }
}

void forget_parked(int tid) {
  for (ParkedThread& place : parked_threads) {
    if (place.tid == tid) __atomic_store_n(&place.tid, 0, __ATOMIC_RELAXED);
  }
}

void forget_all_parked() {
  for (ParkedThread& place : parked_threads) place.tid = 0;
}

}  // namespace quarl
