// SPDX-License-Identifier: Apache-2.0
// One memory fault, chosen by name, in a program that otherwise does nothing: planted FAULT.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

extern void quarl_check_mem(void) __attribute__((weak));

// A name of 12 letters needs 13 bytes.
static char* copy_name(const char* name) {
  char* copy = malloc(strlen(name));
  strcpy(copy, name);
  return copy;
}

static void double_free(void) {
  char* message = malloc(100);
  free(message);
  free(message);
}

static void tail_overrun(void) {
  free(copy_name("thermometer1"));
}

static void head_overrun(void) {
  int* readings = malloc(10 * sizeof(int));
  int first = 0;
  readings[first - 1] = 42;  // the word below the block
  free(readings);
}

static void freed_realloc(void) {
  char* buffer = malloc(64);
  free(buffer);
  buffer = realloc(buffer, 128);
  free(buffer);
}

static char* kept;
static void exit_overrun(void) {
  kept = copy_name("thermometer2");
}

static void api_overrun(void) {
  kept = copy_name("thermometer3");
  if (quarl_check_mem) quarl_check_mem();
  kept[12] = (char)0xEB;  // repaired: nothing but the check above can have seen it
}

static const struct {
  const char* name;
  void (*plant)(void);
} faults[] = {
    {"double-free", double_free},     {"tail-overrun", tail_overrun}, {"head-overrun", head_overrun},
    {"freed-realloc", freed_realloc}, {"exit-overrun", exit_overrun}, {"api-overrun", api_overrun},
};

int main(int argc, char** argv) {
  for (size_t i = 0; argc == 2 && i < sizeof(faults) / sizeof(faults[0]); i++) {
    if (strcmp(argv[1], faults[i].name) == 0) {
      faults[i].plant();
      return 0;
    }
  }
  fprintf(stderr, "planted FAULT: no such fault\n");
  return 2;
}
