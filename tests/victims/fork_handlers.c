// SPDX-License-Identifier: Apache-2.0
// A library that is initialised before the checker, with fork handlers that allocate, and that wait for a thread which
// allocates, as those of caches and pools do.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdlib.h>

static sem_t asked, done;
static enum { kNot, kOrdinary, kBypassing } serving;

static void* serve(void* unused) {
  for (;;) {
    sem_wait(&asked);
    free(malloc(40));
    sem_post(&done);
  }
  return unused;
}

static void allocate(void) {
  if (serving == kOrdinary) free(realloc(malloc(50), 500));
}

static void wait_for_server(void) {
  sem_post(&asked);
  sem_wait(&done);
}

static void allocate_and_wait(void) {
  allocate();
  if (serving == kOrdinary) wait_for_server();
}

static void wait_when_bypassing(void) {
  if (serving == kBypassing) wait_for_server();
}

void start_server(int bypassing) {
  pthread_t thread;
  serving = pthread_create(&thread, NULL, serve, NULL) != 0 ? kNot : bypassing ? kBypassing : kOrdinary;
}

__attribute__((constructor)) static void start(void) {
  sem_init(&asked, 0, 0);
  sem_init(&done, 0, 0);
  // Past every entry of that name but the C library's own, and before the checker's.
  int (*direct)(void (*)(void), void (*)(void), void (*)(void), void*) =
      dlsym(dlopen("libc.so.6", RTLD_NOLOAD | RTLD_LAZY), "__register_atfork");
  direct(wait_when_bypassing, NULL, NULL, NULL);
  pthread_atfork(allocate_and_wait, allocate_and_wait, allocate);
}
