// SPDX-License-Identifier: Apache-2.0
// Whether the program has set itself a filter of system calls (seccomp), which may end it at any call that it does not
// expect. From then on the checker makes none: checking goes on in memory, and the functions of sys:: are refused.
//
// A filter that one thread has set counts for the process: threads and children that it starts inherit it.
#pragma once

namespace quarl {

bool confined();

// Before a filter is set, and when it could not be set. Pairs of them on several threads may overlap.
void confine();
void end_confinement();

// Waits until the calls that other threads have begun before are over, for half a second at most.
void await_own_calls();

// A system call of the checker's, or several, over its lifetime. Where it is refused errno is EPERM.
class OwnCall {
 public:
  OwnCall();
  ~OwnCall();
  OwnCall(const OwnCall&) = delete;
  OwnCall& operator=(const OwnCall&) = delete;
  bool refused() const { return refused_; }

 private:
  bool refused_;
};

}  // namespace quarl
