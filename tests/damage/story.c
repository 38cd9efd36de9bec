// SPDX-License-Identifier: Apache-2.0
// How a round ended when it crashed: where, and which calls led there.
#include <string.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include "code.h"
#include "damage.h"

static struct Story* story;
static _Thread_local char* stack_end;
static _Thread_local char alternate[16384];

static uintptr_t stack_pointer(const ucontext_t* at, uintptr_t* pc, uintptr_t* link) {
#if defined(__i386__)
  *pc = (uintptr_t)at->uc_mcontext.gregs[REG_EIP];
  *link = 0;
  return (uintptr_t)at->uc_mcontext.gregs[REG_ESP];
#else
  *pc = at->uc_mcontext.arm_pc;
  *link = at->uc_mcontext.arm_lr;
  return at->uc_mcontext.arm_sp;
#endif
}

// The process that reads this knows which of the words are code; here only stack is taken for stack.
static void crashed(int number, siginfo_t* info, void* context) {
  uintptr_t pc, link;
  uintptr_t sp = stack_pointer(context, &pc, &link) & ~3ul;
  story->pc = pc;
  story->address = number == SIGABRT ? 0 : (uintptr_t)info->si_addr;
  story->code[story->depth++] = link;
  for (const uintptr_t* word = (const uintptr_t*)sp; (const char*)word < stack_end && story->depth < kCodeWords;
       ++word) {
    if (is_code(*word)) story->code[story->depth++] = *word;
  }
  story->signal = number;
  signal(number, SIG_DFL);
  raise(number);
}

void tell_stack(void) {
  stack_end = (char*)__builtin_frame_address(0) + 512;
  stack_t stack = {.ss_sp = alternate, .ss_size = sizeof alternate};
  sigaltstack(&stack, NULL);
}

void tell_crashes(struct Story* told) {
  story = told;
  struct sigaction action = {.sa_sigaction = crashed, .sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER};
  const int deadly[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
  for (size_t i = 0; i < sizeof deadly / sizeof *deadly; ++i) sigaction(deadly[i], &action, NULL);
  tell_stack();
}
