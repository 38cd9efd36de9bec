// SPDX-License-Identifier: Apache-2.0
// Allocation churn: every step releases one of the live blocks and takes another in its place.
//   churn LIVE STEPS THREADS
//   churn depth                how many addresses the trace of such a block has; for those that give blocks a header
// LIVE blocks and STEPS steps are shared out among THREADS. Prints processor time and elapsed time in ns per step; a
// step is one free and one malloc, made four calls deep.
#include <pthread.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "clock.h"
#include "quarlheap/model/header_layout.h"

namespace {

constexpr quarl::HeaderLayout kLayout = quarl::kFullLayout;
constexpr uint32_t kSmallest = 8, kUsual = 512, kLargest = 64 * 1024;  // bytes
constexpr uint32_t kOneLargeIn = 64;
constexpr long kWarmUpRounds = 3;  // steps per live block before the clocks start

struct Share {
  long live, steps;
  uint32_t seed;
  pthread_barrier_t* filled;
  pthread_t thread;
  double cpu, elapsed;  // ns that the steps took
};

uint32_t next(uint32_t& state) {
  state ^= state << 13;
  state ^= state >> 17;
  state ^= state << 5;
  return state;
}

size_t pick_size(uint32_t& state) {
  const uint32_t limit = next(state) % kOneLargeIn ? kUsual : kLargest;
  return kSmallest + next(state) % (limit - kSmallest + 1);
}

// Four frames between the loop and malloc, so that a trace of that depth has something to find.
[[gnu::noinline]] char* take_here(size_t size) {
  char* block = static_cast<char*>(malloc(size));
  if (block == nullptr) abort();
  block[0] = block[size - 1] = 1;
  return block;
}
[[gnu::noinline]] char* take_third(size_t size) {
  return take_here(size);
}
[[gnu::noinline]] char* take_second(size_t size) {
  return take_third(size);
}
[[gnu::noinline]] char* take(size_t size) {
  return take_second(size);
}

void replace(std::vector<char*>& blocks, long steps, uint32_t& state) {
  for (long i = 0; i < steps; i++) {
    char*& block = blocks[next(state) % blocks.size()];
    free(block);
    block = take(pick_size(state));
  }
}

void* churn(void* argument) {
  Share& share = *static_cast<Share*>(argument);
  uint32_t state = share.seed;
  std::vector<char*> blocks(share.live);
  for (char*& block : blocks) block = take(pick_size(state));
  replace(blocks, kWarmUpRounds * share.live, state);
  pthread_barrier_wait(share.filled);
  const double cpu = now(CLOCK_THREAD_CPUTIME_ID), elapsed = now(CLOCK_MONOTONIC);
  replace(blocks, share.steps, state);
  share.cpu = now(CLOCK_THREAD_CPUTIME_ID) - cpu;
  pthread_barrier_wait(share.filled);
  share.elapsed = now(CLOCK_MONOTONIC) - elapsed;
  for (char* block : blocks) free(block);
  return nullptr;
}

// 0 for a block without a header.
uint32_t trace_depth(const char* block) {
  const auto* end = reinterpret_cast<const uint32_t*>(block);
  if ((end[quarl::kSelfLink] & ~quarl::kLinkFlags) != quarl::address_of(block)) return 0;
  return quarl::TraceInfo{*(end - kLayout.trace_info_offset() / 4)}.depth();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2) {
    char* block = take(kUsual);
    printf("%u\n", trace_depth(block));
    free(block);
    return 0;
  }
  if (argc != 4) {
    fprintf(stderr, "churn LIVE STEPS THREADS\nchurn depth\n");
    return 2;
  }
  const long live = atol(argv[1]), steps = atol(argv[2]), threads = atol(argv[3]);
  pthread_barrier_t filled;
  pthread_barrier_init(&filled, nullptr, threads);
  std::vector<Share> shares(threads);
  for (long i = 0; i < threads; i++) {
    shares[i] = {live / threads, steps / threads, uint32_t(i * 2654435761u + 17), &filled, {}, 0, 0};
    if (i > 0) pthread_create(&shares[i].thread, nullptr, churn, &shares[i]);
  }
  churn(&shares[0]);  // the main thread works too: alone, it keeps the allocator single-threaded
  double cpu = shares[0].cpu;
  for (long i = 1; i < threads; i++) {
    pthread_join(shares[i].thread, nullptr);
    cpu += shares[i].cpu;
  }
  printf("%.1f %.1f\n", cpu / steps, shares[0].elapsed / steps);
  return 0;
}
