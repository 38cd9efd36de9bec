// SPDX-License-Identifier: Apache-2.0
#include "platform/confinement.h"

#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/system_call.h"

namespace quarl {
namespace {

constinit int confinements = 0;  // filters that are set, or about to be
constinit int calls = 0;         // own calls under way

constexpr int kRounds = 50;
constexpr int kRound = 10;  // milliseconds

}  // namespace

bool confined() {
  return __atomic_load_n(&confinements, __ATOMIC_SEQ_CST) != 0;
}
void confine() {
  __atomic_fetch_add(&confinements, 1, __ATOMIC_SEQ_CST);
}
void end_confinement() {
  __atomic_fetch_sub(&confinements, 1, __ATOMIC_SEQ_CST);
}

void await_own_calls() {
  for (int round = 0; round < kRounds && __atomic_load_n(&calls, __ATOMIC_SEQ_CST) != 0; ++round) {
    system_call(SYS_poll, nullptr, 0, kRound);  // the C library's is a cancellation point
  }
}

// Counted before the look, so that whoever confines the process either is seen here or sees the call.
OwnCall::OwnCall() {
  __atomic_fetch_add(&calls, 1, __ATOMIC_SEQ_CST);
  refused_ = confined();
  if (refused_) errno = EPERM;
}

OwnCall::~OwnCall() {
  __atomic_fetch_sub(&calls, 1, __ATOMIC_SEQ_CST);
}

}  // namespace quarl
