// SPDX-License-Identifier: Apache-2.0
// How a victim tells the tests what it did, without touching the heap or its standard output.
#pragma once

#include <stdio.h>
#include <unistd.h>

enum { kAnnounceDescriptor = 77 };  // a pipe to the tests; without one nothing is announced

// Writes one line "NAME 0xVALUE"; safe in a signal handler.
static inline void announce(const char* name, const volatile void* value) {
  char line[64];
  int length = snprintf(line, sizeof line, "%s 0x%lx\n", name, (unsigned long)value);
  ssize_t ignored = write(kAnnounceDescriptor, line, (size_t)length);
  (void)ignored;
}

// The exported check, when the checker is loaded.
extern void quarl_check_mem(void) __attribute__((weak));
