// SPDX-License-Identifier: Apache-2.0
// Threads that the checker has parked after a fault.
#pragma once

#include <sys/types.h>

#include <vector>

namespace quarl {

// A parked thread waits without a time limit for one signal alone: number 60 of its program.
struct ParkedThread {
  pid_t pid;
  pid_t tid;
  int signal;  // ends the wait; the number on this machine
};

// Needs the right to look into the process (same user); without it none is found.
std::vector<ParkedThread> find_parked(pid_t pid);

// False when the thread is gone.
bool release(const ParkedThread& thread);

}  // namespace quarl
