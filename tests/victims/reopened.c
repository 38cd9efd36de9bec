// SPDX-License-Identifier: Apache-2.0
// A library that takes the addresses of another: built twice, so that what differs are the frames of its functions.
#include <stdlib.h>
#include <string.h>

#ifndef ROOM
#define ROOM 16
#endif

static void* volatile kept;
static volatile int few = 3;

__attribute__((noinline, noclone)) static void inner(void) {
  char room[ROOM];
  memset(room, few, sizeof room);
  kept = malloc(4321);
  __asm__ volatile("" : : "r"(room) : "memory");
  free(kept);
}

void reopened_allocation(void) {
  char room[ROOM * 2];
  memset(room, few, sizeof room);
  inner();
  __asm__ volatile("" : : "r"(room) : "memory");
}
