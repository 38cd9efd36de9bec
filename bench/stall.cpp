// SPDX-License-Identifier: Apache-2.0
// How long a snapshot keeps others waiting.
//   stall BLOCKS
// With BLOCKS live blocks, one thread allocates and frees without a pause while the main thread raises the dump signal.
// Prints, in microseconds, the time of the handler and the longest time that one pair of calls of the other thread
// took meanwhile: the greater of the two is how long the snapshot held the lock.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "clock.h"

namespace {

constexpr int kWarmUpCalls = 10000;
constexpr size_t kBlockSize = 48;

std::atomic<int> calls;
std::atomic<bool> stop;
std::atomic<int> longest;  // microseconds

int microseconds_since(double begin) {
  return static_cast<int>((now(CLOCK_MONOTONIC) - begin) / 1000);
}

void* allocate(void*) {
  sigset_t dump;
  sigemptyset(&dump);
  sigaddset(&dump, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &dump, nullptr);
  while (!stop) {
    const double begin = now(CLOCK_MONOTONIC);
    free(malloc(kBlockSize));
    const int took = microseconds_since(begin);
    if (++calls > kWarmUpCalls && took > longest) longest = took;
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "stall BLOCKS\n");
    return 2;
  }
  std::vector<void*> blocks(atoi(argv[1]));
  for (void*& block : blocks) block = malloc(kBlockSize);
  pthread_t other;
  pthread_create(&other, nullptr, allocate, nullptr);
  while (calls < kWarmUpCalls) sched_yield();
  const double begin = now(CLOCK_MONOTONIC);
  raise(SIGUSR1);
  const int took = microseconds_since(begin);
  const int reached = calls;
  while (calls < reached + kWarmUpCalls) sched_yield();  // a call that waited for the lock has ended by then
  stop = true;
  pthread_join(other, nullptr);
  printf("%d %d\n", took, longest.load());
  for (void* block : blocks) free(block);
  return 0;
}
