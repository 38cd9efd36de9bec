// SPDX-License-Identifier: Apache-2.0
// Allocates in handlers of signals that interrupt code of the kernel's in the process: the vdso of i386, instruction by
// instruction, and the helpers at the end of ARM's address space; and a system call that is begun again. The code has
// no frame pointer. The size of a block says where.
#define _GNU_SOURCE
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <sys/time.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#define SHAPE __attribute__((noinline, noclone))
#define USED(place) __asm__ volatile("" : : "r"(place) : "memory")

enum { kInKernelCode = 2001, kBegunAgain = 2002 };

static void* volatile kept;
static int ends[2];

SHAPE void allocate(size_t size) {
  kept = malloc(size);
  USED(kept);
}

static void handle(int signal, void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action = {.sa_sigaction = handler, .sa_flags = SA_SIGINFO | SA_RESTART};
  sigaction(signal, &action, NULL);
}

#ifdef __i386__
static uintptr_t pc_of(const ucontext_t* context) {
  return (uintptr_t)context->uc_mcontext.gregs[REG_EIP];
}
static int is_system_call(uintptr_t pc) {
  return *(const uint16_t*)pc == 0x80CD;
}

static void step(int signal, siginfo_t* info, void* context) {
  const size_t kLength = 0x2000;
  if (pc_of(context) - getauxval(AT_SYSINFO_EHDR) < kLength) allocate(kInKernelCode);
  USED(info);
  USED(signal);
}

SHAPE void interrupted(void) {
  struct timespec now;
  __asm__ volatile("pushf; orl $0x100, (%%esp); popf" : : : "memory", "cc");
  clock_gettime(CLOCK_MONOTONIC, &now);
  time(NULL);
  __asm__ volatile("pushf; andl $~0x100, (%%esp); popf" : : : "memory", "cc");
  USED(&now);
}

static void in_kernel_code(void) {
  handle(SIGTRAP, step);
  interrupted();
}
#else
static uintptr_t pc_of(const ucontext_t* context) {
  return context->uc_mcontext.arm_pc;
}
static int is_system_call(uintptr_t pc) {
  return *(const uint16_t*)pc == 0xDF00 || *(const uint32_t*)pc == 0xEF000000;
}

// As if the signal had come while raise called each of the helpers.
static void step(int signal, siginfo_t* info, void* given) {
  static const uint32_t helpers[] = {0xFFFF0F60, 0xFFFF0FA0, 0xFFFF0FC0, 0xFFFF0FE0, 0xFFFF0FE4};
  mcontext_t* at = &((ucontext_t*)given)->uc_mcontext;
  const mcontext_t before = *at;
  for (size_t i = 0; i < sizeof helpers / sizeof *helpers; ++i) {
    at->arm_lr = before.arm_pc | (before.arm_cpsr >> 5 & 1);
    at->arm_pc = helpers[i];
    at->arm_cpsr = before.arm_cpsr & ~(1UL << 5);
    allocate(kInKernelCode);
  }
  *at = before;
  USED(info);
  USED(signal);
}

SHAPE void interrupted(void) {
  raise(SIGUSR2);
  USED(&kept);
}

static void in_kernel_code(void) {
  handle(SIGUSR2, step);
  interrupted();
}
#endif

// Lets the call go on once it was begun again. The next signal may come before it does.
static void begin_again(int signal, siginfo_t* info, void* context) {
  static volatile int begun;
  if (begun || !is_system_call(pc_of(context))) return;
  begun = 1;
  allocate(kBegunAgain);
  write(ends[1], "", 1);
  USED(info);
  USED(signal);
}

SHAPE void waiting(void) {
  const struct itimerval often = {{0, 2000}, {0, 2000}};
  const struct itimerval never = {{0, 0}, {0, 0}};
  char byte;
  handle(SIGALRM, begin_again);
  setitimer(ITIMER_REAL, &often, NULL);
  read(ends[0], &byte, 1);
  setitimer(ITIMER_REAL, &never, NULL);
  USED(&byte);
}

int main(void) {
  pipe(ends);
  in_kernel_code();
  waiting();
  return 3;
}
