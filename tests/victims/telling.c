// SPDX-License-Identifier: Apache-2.0
// Meets faults where it is hard to tell of them:
//   handler        in a signal handler on the smallest stack for one
//   storm          in eight threads at once, each of which is stopped
//   everywhere     in eight threads that check the heap at once, again and again
//   jail FOLDER    in a jail without /proc, as another user
//   closed         behind closing every descriptor there may be
#define _GNU_SOURCE
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "announce.h"

enum { kThreads = 8, kRounds = 20, kCannot = 77 };

__attribute__((noinline)) static char* overrun(size_t size) {
  char* block = malloc(size);
  memset(block, 'x', size + 1);
  return block;
}

static void handler(int signal) {
  (void)signal;
  quarl_check_mem();
}

static int in_handler(void) {
  char* pages = mmap(NULL, 8192 + MINSIGSTKSZ, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  mprotect(pages, 4096, PROT_NONE);
  stack_t alternate = {.ss_sp = pages + 4096, .ss_size = 8192};
  struct sigaction action = {.sa_handler = handler, .sa_flags = SA_ONSTACK};
  sigaltstack(&alternate, NULL);
  sigaction(SIGHUP, &action, NULL);
  overrun(24);
  raise(SIGHUP);
  return 0;
}

static pthread_barrier_t together;

static void* release(void* unused) {
  char* block = overrun(100);
  (void)unused;
  pthread_barrier_wait(&together);
  free(block);
  return NULL;
}

static void* check(void* unused) {
  (void)unused;
  pthread_barrier_wait(&together);
  for (int i = 0; i < kRounds; ++i) quarl_check_mem();
  return NULL;
}

static int in_threads(void* (*act)(void*)) {
  pthread_t threads[kThreads];
  pthread_barrier_init(&together, NULL, kThreads + 1);
  for (int i = 0; i < kThreads; ++i) pthread_create(&threads[i], NULL, act, NULL);
  pthread_barrier_wait(&together);
  for (int i = 0; i < kThreads; ++i) pthread_join(threads[i], NULL);
  return 0;
}

static int in_jail(const char* folder) {
  if (chroot(folder) != 0 && (unshare(CLONE_NEWUSER) != 0 || chroot(folder) != 0)) return kCannot;
  if (chdir("/") != 0) return kCannot;
  if (setgid(65534) != 0 || setuid(65534) != 0) announce("same_user", NULL);
  overrun(24);
  quarl_check_mem();
  return 0;
}

static int without_descriptors(void) {
  for (int i = 3; i < 1024; ++i) {
    if (i != kAnnounceDescriptor) close(i);
  }
  overrun(24);
  quarl_check_mem();
  return 0;
}

int main(int argc, char** argv) {
  const char* place = argc > 1 ? argv[1] : "";
  if (strcmp(place, "handler") == 0) return in_handler();
  if (strcmp(place, "storm") == 0) return in_threads(release);
  if (strcmp(place, "everywhere") == 0) return overrun(24), overrun(25), in_threads(check);
  if (strcmp(place, "jail") == 0) return in_jail(argv[2]);
  return without_descriptors();
}
