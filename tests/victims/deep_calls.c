// SPDX-License-Identifier: Apache-2.0
// Allocates and damages a block below three functions, on the main thread or with an argument on another.
#include <pthread.h>
#include <stdlib.h>

#include "announce.h"

#define NOINLINE __attribute__((noinline))

static char* volatile damaged;

NOINLINE static void innermost(void) {
  damaged = malloc(10);
  damaged[10] = 'x';
}
NOINLINE static void middle(void) {
  innermost();
  announce("middle", middle);
}
NOINLINE static void outer(void) {
  middle();
  announce("outer", outer);
}

static void* thread_body(void* unused) {
  outer();
  return unused;
}

int main(int argc, char** argv) {
  (void)argv;
  if (argc == 1) {
    outer();
  } else {
    pthread_t thread;
    if (pthread_create(&thread, NULL, thread_body, NULL) != 0) return 1;
    pthread_join(thread, NULL);
  }
  announce("block", damaged);
  return 0;
}
