// SPDX-License-Identifier: Apache-2.0
// faulting_call malloc|free|realloc: the call is made while memory that it has to write, a header, cannot be touched.
// Prints where in the library that has malloc it was then, as an offset, and ends.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

enum { kPage = 4096, kApart = 3 * kPage, kLarge = 100000 };

static uintptr_t library;

static void tell(int signal, siginfo_t* info, void* context) {
  (void)signal, (void)info;
#ifdef __arm__
  const uintptr_t at = ((ucontext_t*)context)->uc_mcontext.arm_pc;
#else
  const uintptr_t at = (uintptr_t)((ucontext_t*)context)->uc_mcontext.gregs[REG_EIP];
#endif
  char line[32];
  const int length = snprintf(line, sizeof line, "%#lx\n", (unsigned long)(at - library));
  _exit(write(STDOUT_FILENO, line, (size_t)length) == length ? 0 : 1);
}

int main(int argc, char** argv) {
  Dl_info of_malloc;
  if (argc != 2 || dladdr((void*)malloc, &of_malloc) == 0) return 2;
  library = (uintptr_t)of_malloc.dli_fbase;
  struct sigaction action = {.sa_sigaction = tell, .sa_flags = SA_SIGINFO};
  sigaction(SIGSEGV, &action, NULL);

  // The page of the last block's header is its own and the first one's.
  char* first = malloc(kApart);
  char* last = malloc(kLarge);
  if (first == NULL || last == NULL) return 3;
  while (((uintptr_t)last & (kPage - 1)) < 256) last = malloc(kLarge);  // most headers lie on one page
  char* page = (char*)((uintptr_t)last & ~(uintptr_t)(kPage - 1));
  if (mprotect(page, kPage, PROT_NONE) != 0) return 4;
  if (strcmp(argv[1], "malloc") == 0) return malloc(1) == NULL;
  if (strcmp(argv[1], "realloc") == 0) return realloc(last, 2 * kLarge) == NULL;
  free(last);
  return 5;
}
