// SPDX-License-Identifier: Apache-2.0
// Threads that allocate, resize and release each other's blocks, with signals, children and cancelled threads among
// them when asked for. Every block holds a pattern that is verified, and every size leaves 11 when divided by 32, so
// that the program's own blocks are told from those of the C library. Announces what it did, for the logs to agree
// with.
//
// stress ROUNDS SEED MODES [COMMAND...]: MODES has s (signals), S (as many as there can be), f (fork), e (exec of
// COMMAND in a child), c (cancellation), k (keeps the last blocks). SEED makes runs differ.
#define _GNU_SOURCE
#include <errno.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../victims/announce.h"

enum { kThreads = 8, kSlots = 256, kLargest = 300000 };
enum { kMalloc, kRealloc, kFree, kMemalign, kReleased, kOperations };
static const char* const kNames[kOperations] = {"malloc", "realloc", "free", "memalign", "realloc_release"};

struct Block {  // the bytes behind it are (uint8_t)size
  uint32_t size;
  uint8_t pattern[];
};

static _Atomic(struct Block*) slots[kSlots];

static struct Thread {
  pthread_t thread;
  unsigned long tid;
  uint64_t random;
  unsigned long calls[kOperations], bytes[kOperations];
} threads[kThreads];

static unsigned long rounds, seed;
static const char* modes;
static char** exec_command;
static atomic_int running;

static void fail(const char* what) {
  announce(what, 0);
  _exit(70);
}

static uint32_t draw(struct Thread* self, uint32_t below) {
  self->random = self->random * 6364136223846793005u + 1442695040888963407u;
  return (uint32_t)((self->random >> 33) % below);
}

static uint32_t draw_size(struct Thread* self) {
  uint32_t largest = draw(self, 200) == 0 ? kLargest : draw(self, 20) == 0 ? 9000 : 300;
  return 11 + draw(self, largest) / 32 * 32;
}

static void count(struct Thread* self, int operation, uint32_t bytes) {
  ++self->calls[operation];
  self->bytes[operation] += bytes;
}

static struct Block* fill(struct Block* block, uint32_t size) {
  if (block == NULL) fail("out_of_memory");
  block->size = size;
  memset(block->pattern, (uint8_t)size, size - sizeof *block);
  return block;
}

static void verify(const struct Block* block, uint32_t size, uint32_t upto) {
  for (uint32_t i = 0; i < upto - sizeof *block; ++i)
    if (block->pattern[i] != (uint8_t)size) fail("pattern");
}

static struct Block* allocate(struct Thread* self) {
  uint32_t size = draw_size(self);
  if (draw(self, 4) == 0) {
    count(self, kMemalign, size);
    return fill(memalign(8u << draw(self, 7), size), size);
  }
  count(self, kMalloc, size);
  return fill(draw(self, 2) ? malloc(size) : calloc(1, size), size);
}

static struct Block* resize(struct Thread* self, struct Block* block) {
  uint32_t old = block->size, size = draw_size(self);
  count(self, kReleased, old);
  count(self, kRealloc, size);
  block = realloc(block, size);
  if (block == NULL) fail("out_of_memory");
  verify(block, old, old < size ? old : size);
  return fill(block, size);
}

static void release(struct Thread* self, struct Block* block) {
  verify(block, block->size, block->size);
  count(self, kFree, block->size);
  free(block);
}

static void await_child(pid_t child) {
  int status;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) fail("wait");
  if (status != 0) fail("child");
}

// The child releases what its parent holds at this moment and makes blocks of its own.
static void run_child(struct Thread* self) {
  pid_t child = fork();
  if (child < 0) fail("fork");
  if (child != 0) return await_child(child);
  for (int i = 0; i < 20; ++i) {
    struct Block* block = atomic_exchange(&slots[draw(self, kSlots)], NULL);
    if (block != NULL) release(self, block);
    release(self, allocate(self));
  }
  if (strchr(modes, 'e') && exec_command[0] != NULL && draw(self, 2)) {
    setenv("QUARL_CFG_FILE", "none", 1);  // its record log would have the name of the one before
    execv(exec_command[0], exec_command);
    _exit(71);
  }
  if (draw(self, 2)) exit(0);
  _exit(0);
}

// Allocates until it is cancelled, holding one block that its cleanup handler releases.
static void* run_cancelled(void* unused) {
  for (;;) {
    void* block = malloc(43);
    pthread_cleanup_push(free, block);
    free(realloc(NULL, 75));
    pthread_testcancel();
    pthread_cleanup_pop(1);
  }
  return unused;
}

static void cancel_one(void) {
  pthread_t thread;
  void* result;
  if (pthread_create(&thread, NULL, run_cancelled, NULL) != 0) fail("create");
  usleep(500);
  pthread_cancel(thread);
  if (pthread_join(thread, &result) != 0 || result != PTHREAD_CANCELED) fail("join");
}

static void step(struct Thread* self) {
  _Atomic(struct Block*)* slot = &slots[draw(self, kSlots)];
  struct Block* block = atomic_exchange(slot, NULL);
  if (block == NULL)
    block = allocate(self);
  else if (draw(self, 3) == 0)
    block = resize(self, block);
  else {
    release(self, block);
    block = NULL;
  }
  block = atomic_exchange(slot, block);  // another thread may have filled it meanwhile
  if (block != NULL) release(self, block);
}

static void* run_thread(void* argument) {
  struct Thread* self = argument;
  self->tid = (unsigned long)syscall(SYS_gettid);
  for (unsigned long round = 0; round < rounds; ++round) {
    for (int i = 0; i < 100; ++i) step(self);
    if (strchr(modes, 'f') && draw(self, 20) == 0) run_child(self);
    if (strchr(modes, 'c') && draw(self, 20) == 0) cancel_one();
  }
  --running;
  return NULL;
}

// Sends the dump signal, the check signal and the timer's signal to one thread after the other.
static void* run_pester(void* unused) {
  static const int kSignals[] = {SIGUSR1, 40, SIGUSR2};
  for (unsigned i = 0; running > 0; ++i) {
    usleep(strchr(modes, 'S') ? 50 : 3000);
    syscall(SYS_tgkill, getpid(), threads[i % kThreads].tid, kSignals[i % 3]);  // may have ended: no matter
  }
  return unused;
}

static void report(void) {
  for (int i = 0; i < kThreads; ++i) {
    announce("tid", (void*)threads[i].tid);
    for (int operation = 0; operation < kOperations; ++operation) {
      announce(kNames[operation], (void*)threads[i].calls[operation]);
      announce("bytes", (void*)threads[i].bytes[operation]);
    }
  }
}

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  rounds = strtoul(argv[1], NULL, 0);
  seed = strtoul(argv[2], NULL, 0);
  modes = argv[3];
  exec_command = argv + 4;
  running = kThreads;
  for (int i = 0; i < kThreads; ++i) {
    threads[i].random = (uint64_t)seed * kThreads + (uint64_t)i + 1;
    if (pthread_create(&threads[i].thread, NULL, run_thread, &threads[i]) != 0) fail("create");
  }
  pthread_t pester;
  int pestered = strchr(modes, 's') != NULL;
  if (pestered) {
    for (int i = 0; i < kThreads; ++i)
      while (*(volatile unsigned long*)&threads[i].tid == 0) usleep(100);
    if (pthread_create(&pester, NULL, run_pester, NULL) != 0) fail("create");
  }
  for (int i = 0; i < kThreads; ++i) pthread_join(threads[i].thread, NULL);
  if (pestered) pthread_join(pester, NULL);
  if (strchr(modes, 'k')) {  // keeps what is left, to be found in the last snapshot
    for (int i = 0; i < kSlots; ++i)
      if (slots[i] != NULL) announce("left", slots[i]);
  } else {
    for (int i = 0; i < kSlots; ++i)
      if (slots[i] != NULL) release(&threads[0], slots[i]);
  }
  report();
  return 0;
}
