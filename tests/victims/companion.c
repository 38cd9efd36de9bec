// SPDX-License-Identifier: Apache-2.0
// A library that is initialised before the checker and finished after it: it holds a block from before the hooks
// and releases blocks after them.
#include <malloc.h>
#include <signal.h>

#include "announce.h"

void* companion_early;
void* companion_late[4];

__attribute__((constructor)) static void start(void) {
  companion_early = malloc(64);
}

static void raise_if_handled(int number) {
  struct sigaction action;
  sigaction(number, NULL, &action);
  if (action.sa_handler != SIG_DFL) raise(number);
}

__attribute__((destructor)) static void finish(void) {
  size_t* bare = malloc(10);
  announce("headed",
           (void*)(size_t)((bare[-1] & ~(size_t)3) == (size_t)bare));  // as a block of the checker names itself
  free(bare);
  free(companion_late[0]);
  companion_late[1] = realloc(companion_late[1], 5000);
  free(companion_late[1]);
  free(companion_late[2]);
  free(companion_late[3]);
  free(malloc(10));
  raise_if_handled(SIGUSR2);
  raise_if_handled(SIGUSR1);
  if (quarl_check_mem) quarl_check_mem();
  announce("finished", companion_late[2]);
}
