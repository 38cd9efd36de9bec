// SPDX-License-Identifier: Apache-2.0
// Allocates below functions that have no frame pointer, each of another shape. The size of a block says which it is.
#include <alloca.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include "announce.h"

#define SHAPE __attribute__((noinline, noclone))
#define USED(place) __asm__ volatile("" : : "r"(place) : "memory")

static void* volatile kept;
static volatile int few = 3;

SHAPE void allocate(size_t size) {
  kept = malloc(size);
  USED(kept);
}

SHAPE void large_frame(size_t size) {
  char room[20000];
  memset(room, few, sizeof room);
  allocate(size);
  USED(room);
}

SHAPE void moving_frame(size_t size) {
  char* room = alloca((size_t)few * 100);
  memset(room, few, 100);
  allocate(size);
  USED(room);
}

SHAPE void moving_below_moving(size_t size) {
  char room[few * 40];
  memset(room, few, 40);
  moving_frame(size);
  USED(room);
}

SHAPE void aligned_frame(size_t size) {
  _Alignas(64) char room[64];
  memset(room, few, sizeof room);
  moving_below_moving(size);
  USED(room);
}

// The caller's frame register is saved below the realigned stack pointer.
SHAPE void moving_above_aligned(size_t size) {
  char room[few * 40];
  memset(room, few, 40);
  aligned_frame(size);
  USED(room);
}

static int compare(const void* one, const void* other) {
  allocate(1005);
  return *(const int*)one - *(const int*)other;
}

SHAPE void below_the_library(void) {
  int two[] = {2, 1};
  qsort(two, 2, sizeof *two, compare);
  USED(two);
}

// Its last instruction calls, so that the return address belongs to the next function.
SHAPE _Noreturn void never_returns(void) {
  allocate(1006);
  free(malloc(1007));
  exit(few);
}
SHAPE void behind(void) {
  allocate(1006);
  never_returns();
}

static void handler(int signal) {
  allocate(signal == SIGUSR2 ? 1008 : 1009);
}

SHAPE void interrupted(int number) {
  raise(number);
  USED(&few);
}

static void signals(void) {
  static char stack[64 * 1024];
  const stack_t alternate = {.ss_sp = stack, .ss_size = sizeof stack};
  struct sigaction here = {.sa_handler = handler};
  struct sigaction elsewhere = {.sa_handler = handler, .sa_flags = SA_ONSTACK | SA_SIGINFO};
  sigaltstack(&alternate, NULL);
  sigaction(SIGUSR2, &here, NULL);
  sigaction(SIGHUP, &elsewhere, NULL);
  interrupted(SIGUSR2);
  interrupted(SIGHUP);
}

int main(void) {
  allocate(1001);
  large_frame(1002);
  moving_frame(1003);
  moving_above_aligned(1004);
  below_the_library();
  signals();
  kept = strdup("a text of just that length ----------------------------------------");
  behind();
  return few;
}
