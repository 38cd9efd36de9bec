// SPDX-License-Identifier: Apache-2.0
// Leaves the process with exit from a signal handler that interrupts an allocation or a release almost surely.
#include <signal.h>
#include <stdlib.h>
#include <sys/time.h>

#include "announce.h"

static void leave(int signal) {
  (void)signal;
  exit(5);
}

int main(int argc, char** argv) {
  struct itimerval once = {.it_value = {.tv_usec = argc > 1 ? atoi(argv[1]) : 1000}};
  signal(SIGALRM, leave);
  setitimer(ITIMER_REAL, &once, NULL);
  for (;;) free(realloc(malloc(20), 400));
}
