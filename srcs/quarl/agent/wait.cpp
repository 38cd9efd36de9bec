// SPDX-License-Identifier: Apache-2.0
#include "agent/wait.h"

#include <errno.h>
#include <poll.h>

#include "platform/live_threads.h"
#include "platform/process_end.h"

namespace quarl {
namespace {

constexpr int kLookRound = 1000;  // milliseconds between looks whether anybody is left

}  // namespace

bool wait_for_socket(int fd) {
  struct pollfd wanted {};
  wanted.fd = fd;
  wanted.events = POLLIN;
  for (;;) {
    const int ready = poll(&wanted, 1, kLookRound);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
    if (ready == 0 && live_threads() == 1) end_process();
  }
}

}  // namespace quarl
