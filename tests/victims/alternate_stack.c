// Allocates in a signal handler on an alternate stack, then leaves the process from it with exit.
#include <signal.h>
#include <stdlib.h>

#include "announce.h"

static char stack[64 * 1024];

static void handler(int signal) {
  char* block = malloc(100);
  free(malloc(20));
  announce("block", block);
  if (signal == SIGUSR2) exit(5);
  free(block);
}

int main(void) {
  stack_t alternate = {.ss_sp = stack, .ss_size = sizeof stack};
  struct sigaction action = {.sa_handler = handler, .sa_flags = SA_ONSTACK};
  if (sigaltstack(&alternate, NULL) != 0) return 1;
  sigaction(SIGHUP, &action, NULL);
  sigaction(SIGUSR2, &action, NULL);
  raise(SIGHUP);
  raise(SIGUSR2);
  return 2;
}
