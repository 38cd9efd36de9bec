// SPDX-License-Identifier: Apache-2.0
// Everything that makes sums hard: large blocks, which the allocator serves by mappings of their own, coming and going
// on several threads; resizes across that threshold, in place and by moving, and ones that fail; aligned blocks of
// every kind; mappings that are released in parts; a child that releases what its parent allocated. Its first argument
// is the number of rounds; with a second one it takes a dump in the middle and is killed at the end.
#define _GNU_SOURCE
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#define APART __attribute__((noinline, noclone))
enum { kThreads = 4, kKept = 48, kPage = 4096 };

static void* volatile kept[kThreads + 1][kKept];
static void* volatile handed_over[kThreads];

static unsigned next_number(unsigned* state) {
  *state = *state * 1664525u + 1013904223u;
  return *state >> 8;
}

// From a few bytes to 600 KB, a quarter of them past the threshold.
static size_t some_size(unsigned* state) {
  static const size_t kMost[] = {200, 5000, 140000, 600000};
  return 1 + next_number(state) % kMost[next_number(state) % 4];
}

static void* map_pages(size_t pages) {
  return mmap(NULL, pages * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

APART void resize_some(void* volatile* block, unsigned* state) {
  size_t size = some_size(state);
  void* resized = realloc(*block, size);
  if (resized != NULL) *block = resized;
}

// Down within the mapping, then gone: what the kernel maps next ends where the block ended first.
APART void shrink_in_place(void) {
  char* block = malloc(600000);
  block = realloc(block, 200000);
  free(block);
  void* mapping = map_pages(30);
  munmap(mapping, 30 * kPage);
}

APART void fail_to_resize(void) {
  static const volatile size_t kTooMuch = 0xF0000000;
  void* block = malloc(321);
  void* resized = realloc(block, kTooMuch);
  if (resized != NULL) block = resized;
  free(block);
}

APART void align_some(void* volatile* block, unsigned* state) {
  static const size_t kAlignments[] = {16, 64, kPage, 1 << 16, 1 << 20};
  void* aligned = NULL;
  size_t size = next_number(state) % 3 == 0 ? 100 : some_size(state);
  if (posix_memalign(&aligned, kAlignments[next_number(state) % 5], size) == 0) *block = aligned;
}

APART void map_in_parts(unsigned round) {
  char* mapping = map_pages(6);
  munmap(mapping, 2 * kPage);                                  // its front: the library keeps it
  if (round % 8 != 0) munmap(mapping + 2 * kPage, 4 * kPage);  // its end: all of it is gone
}

APART void step(unsigned thread, unsigned round, unsigned* state) {
  void* volatile* block = &kept[thread][next_number(state) % kKept];
  switch (next_number(state) % 6) {
    case 0:
    case 1:
      free(*block);
      *block = malloc(some_size(state));
      break;
    case 2:
    case 3:
      resize_some(block, state);
      break;
    case 4:
      free(*block);
      *block = NULL;
      align_some(block, state);
      break;
    default:
      map_in_parts(round);
  }
  if (round % 16 == 0) {  // what one thread allocates another releases
    void* mine = malloc(some_size(state));
    free(__atomic_exchange_n(&handed_over[(thread + round / 16) % kThreads], mine, __ATOMIC_ACQ_REL));
  }
}

static unsigned rounds;

// One step at a time. Else a thread may get the addresses of a mapping that another one has given back before the
// record of that is written, and the records do not tell which of two mappings at one place has ended.
static pthread_mutex_t turn = PTHREAD_MUTEX_INITIALIZER;

static void* work(void* argument) {
  unsigned thread = (unsigned)(uintptr_t)argument, state = thread * 77 + 5;
  for (unsigned round = 0; round < rounds; ++round) {
    pthread_mutex_lock(&turn);
    step(thread, round, &state);
    pthread_mutex_unlock(&turn);
    sched_yield();
  }
  pthread_mutex_lock(&turn);
  shrink_in_place();
  fail_to_resize();
  pthread_mutex_unlock(&turn);
  return NULL;
}

static void fork_a_child(void) {
  pid_t child = fork();
  if (child == 0) {
    for (int index = 0; index < kKept; ++index) free(kept[0][index]);
    kept[0][0] = malloc(250000);
    kept[0][1] = malloc(70);
    exit(0);
  }
  waitpid(child, NULL, 0);
}

int main(int count, char** arguments) {
  pthread_t threads[kThreads];
  rounds = (unsigned)atoi(arguments[1]);
  work((void*)0);
  free(NULL);
  fork_a_child();
  for (uintptr_t index = 1; index < kThreads; ++index) pthread_create(&threads[index], NULL, work, (void*)index);
  for (int index = 1; index < kThreads; ++index) pthread_join(threads[index], NULL);
  if (count > 2) {
    kill(getpid(), SIGUSR1);
    work((void*)0);
    kill(getpid(), SIGKILL);
  }
  return 0;
}
