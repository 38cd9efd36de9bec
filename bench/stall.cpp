// How long a snapshot keeps others waiting.
//   stall BLOCKS
// With BLOCKS live blocks, one thread allocates and frees without a pause while the main thread raises the dump signal.
// Prints, in microseconds, the time of the handler and the longest time that one pair of calls of the other thread
// took meanwhile: the greater of the two is how long the snapshot held the lock.
#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int kWarmUpCalls = 10000;
constexpr size_t kBlockSize = 48;

std::atomic<int> calls;
std::atomic<bool> stop;
std::atomic<int> longest;  // microseconds

int64_t now() {  // microseconds
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
}

void* allocate(void*) {
  sigset_t dump;
  sigemptyset(&dump);
  sigaddset(&dump, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &dump, nullptr);
  while (!stop) {
    const int64_t begin = now();
    free(malloc(kBlockSize));
    const int took = int(now() - begin);
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
  const int64_t begin = now();
  raise(SIGUSR1);
  const int64_t took = now() - begin;
  const int reached = calls;
  while (calls < reached + kWarmUpCalls) sched_yield();  // a call that waited for the lock has ended by then
  stop = true;
  pthread_join(other, nullptr);
  printf("%lld %d\n", static_cast<long long>(took), longest.load());
  for (void* block : blocks) free(block);
  return 0;
}
