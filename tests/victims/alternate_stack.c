// SPDX-License-Identifier: Apache-2.0
// Allocates in a signal handler on an alternate stack, once more than a page below the handler's own frame, then leaves
// the process from it with exit. With an argument it does the same on a stack of its own making, as a coroutine has.
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <ucontext.h>

#include "announce.h"

static char stack[64 * 1024];

static void* volatile kept;

__attribute__((noinline)) static void allocate_deep(void) {
  char page[6000];
  memset(page, 0, sizeof page);
  __asm__ volatile("" : : "r"(page) : "memory");
  kept = malloc(77);
  announce("deep", kept);
}

static void handler(int signal) {
  allocate_deep();
  char* block = malloc(100);
  free(malloc(20));
  announce("block", block);
  if (signal == SIGUSR2) exit(5);
  free(block);
}

static void coroutine(void) {
  allocate_deep();
  announce("done", kept);
}

static int run_coroutine(void) {
  static ucontext_t here, there;
  getcontext(&there);
  there.uc_stack = (stack_t){.ss_sp = stack, .ss_size = sizeof stack};
  there.uc_link = &here;
  makecontext(&there, coroutine, 0);
  return swapcontext(&here, &there);
}

int main(int argc, char** argv) {
  (void)argv;
  if (argc > 1) return run_coroutine();
  stack_t alternate = {.ss_sp = stack, .ss_size = sizeof stack};
  struct sigaction action = {.sa_handler = handler, .sa_flags = SA_ONSTACK};
  if (sigaltstack(&alternate, NULL) != 0) return 1;
  sigaction(SIGHUP, &action, NULL);
  sigaction(SIGUSR2, &action, NULL);
  raise(SIGHUP);
  raise(SIGUSR2);
  return 2;
}
