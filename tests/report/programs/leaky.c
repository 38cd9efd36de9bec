// SPDX-License-Identifier: Apache-2.0
// Leaks known to the byte, and much that is released again. What it must hold at its end:
//   leak_list      5 blocks of 24 bytes through two callers (3 and 2)
//   leak_buffer    1 block of 1000 bytes, resized from 100
//   leak_inlined   2 blocks of 77 bytes, from a function that is inlined into its caller
//   leak_large     1 block of 300000 bytes, which the allocator serves by a mapping of its own
//   leak_mapping   1 anonymous mapping of 8192 bytes
//   leak_both      2 blocks of 33 bytes, asked for in two ways in one line
//   leak_in_thread 4 blocks of 50 bytes, asked for by a second thread
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#define APART __attribute__((noinline, noclone))

static void* volatile kept[64];
static int kept_count;

static void keep(void* block) {
  kept[kept_count++ % 64] = block;
}

APART void leak_list(int count) {
  for (int index = 0; index < count; ++index) keep(malloc(24));
}

APART void first_caller(void) {
  leak_list(3);
}
APART void second_caller(void) {
  leak_list(2);
}

APART void leak_buffer(void) {
  char* buffer = malloc(100);
  memset(buffer, 1, 100);
  keep(realloc(buffer, 1000));
}

static inline __attribute__((always_inline)) void* leak_inlined(void) {
  return malloc(77);
}

APART void call_inlined(void) {
  for (int index = 0; index < 2; ++index) keep(leak_inlined());
}

APART void leak_large(void) {
  keep(malloc(300000));
}

APART void leak_mapping(void) {
  keep(mmap(NULL, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

APART void leak_both(void) {
  keep(malloc(33)), keep(calloc(3, 11));
}

APART void* leak_in_thread(void* unused) {
  for (int index = 0; index < 4; ++index) keep(malloc(50));
  return unused;
}

APART void come_and_go(void) {
  for (int round = 0; round < 200; ++round) {
    char* block = malloc((size_t)(round * 37 % 5000 + 1));
    block = realloc(block, (size_t)(round * 91 % 7000 + 1));
    free(block);
    void* mapping = mmap(NULL, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(mapping, 4096);
  }
  free(malloc(400000));
}

__attribute__((noreturn)) APART static void never_returns(void) {
  _exit(3);
}
APART void end_with_a_call(void) {
  never_returns();
}

int main(int count, char** arguments) {
  (void)arguments;
  if (count > 2) end_with_a_call();
  first_caller();
  if (count > 1) kill(getpid(), SIGUSR1);  // a snapshot in the middle, written over by the one at exit
  come_and_go();
  second_caller();
  leak_buffer();
  call_inlined();
  leak_large();
  leak_mapping();
  leak_both();
  pthread_t thread;
  pthread_create(&thread, NULL, leak_in_thread, NULL);
  pthread_join(thread, NULL);
  return 0;
}
