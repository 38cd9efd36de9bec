// SPDX-License-Identifier: Apache-2.0
// Threads that map and unmap without a pause, so that addresses which one has just given back are another's at once:
// anonymous memory and a file's, of a few pages each, given back whole or after their first or last page; and large
// blocks that grow and shrink. All of it is given back in the end.
//
// mapping_churn THREADS ROUNDS CHILDREN: the main thread forks so many children meanwhile, which just exit.
#include <fcntl.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "announce.h"

enum { kPage = 4096, kMostPages = 6, kLive = 4, kThreads = 16, kBlockStep = 128 * 1024, kBlockSteps = 8 };

static struct Thread {
  pthread_t thread;
  uint64_t random;
  struct Mapping {
    char* base;
    size_t length;
    int from_file;
  } live[kLive];
  char* block;
  unsigned long trimmed;  // bytes by which unmapped bytes are fewer (modulo 2^32) in the books than what was mapped
} threads[kThreads];

static int file;
static long rounds;
static atomic_int running;

static uint32_t draw(struct Thread* self, uint32_t below) {
  self->random = self->random * 6364136223846793005u + 1442695040888963407u;
  return (uint32_t)(self->random >> 33) % below;
}

static void unmap(char* base, size_t length) {
  if (munmap(base, length) != 0) _exit(3);
}

// A mapping whose end is unmapped leaves the books whole; one whose beginning is, when the rest is.
static void unmap_in_parts(struct Thread* self, const struct Mapping* mapping) {
  const size_t rest = mapping->length - kPage;
  if (draw(self, 2)) {
    unmap(mapping->base, kPage);
    unmap(mapping->base + kPage, rest);
    self->trimmed -= kPage;
  } else {
    unmap(mapping->base + rest, kPage);
    unmap(mapping->base, rest);
    self->trimmed -= rest;
  }
}

static void release(struct Thread* self, const struct Mapping* mapping) {
  if (!mapping->from_file && mapping->length > kPage && draw(self, 4) == 0) {
    unmap_in_parts(self, mapping);
  } else {
    unmap(mapping->base, mapping->length);
  }
}

static struct Mapping map(struct Thread* self) {
  struct Mapping made = {NULL, (1 + draw(self, kMostPages)) * kPage, draw(self, 3) == 0};
  const int flags = made.from_file ? MAP_PRIVATE : MAP_PRIVATE | MAP_ANONYMOUS;
  made.base = mmap(NULL, made.length, PROT_READ, flags, made.from_file ? file : -1, 0);
  if (made.base == MAP_FAILED) _exit(4);
  return made;
}

static void resize(struct Thread* self) {
  self->block = realloc(self->block, 1000 + kBlockStep * (1 + draw(self, kBlockSteps)));
  if (self->block == NULL) _exit(5);
}

static void* churn(void* argument) {
  struct Thread* self = argument;
  for (long round = 0; round < rounds; ++round) {
    struct Mapping* mapping = &self->live[draw(self, kLive)];
    if (mapping->base != NULL) release(self, mapping);
    *mapping = map(self);
    if (draw(self, 4) == 0) resize(self);
  }
  for (int i = 0; i < kLive; ++i)
    if (self->live[i].base != NULL) release(self, &self->live[i]);
  free(self->block);
  --running;
  return NULL;
}

static void fork_once(void) {
  int status;
  const pid_t child = fork();
  if (child == 0) {
    announce("child", (void*)(long)getpid());
    exit(0);
  }
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) _exit(6);
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const int count = atoi(argv[1]);
  rounds = atol(argv[2]);
  file = open("/proc/self/exe", O_RDONLY);
  running = count;
  for (int i = 0; i < count; ++i) {
    threads[i].random = (uint64_t)i * 2654435761u + 1;
    if (pthread_create(&threads[i].thread, NULL, churn, &threads[i]) != 0) return 7;
  }
  for (int i = 0; i < atoi(argv[3]) && running == count; ++i) fork_once();
  unsigned long trimmed = 0;
  for (int i = 0; i < count; ++i) {
    pthread_join(threads[i].thread, NULL);
    trimmed += threads[i].trimmed;
  }
  announce("trimmed", (void*)trimmed);
  return 0;
}
