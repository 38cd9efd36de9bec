// SPDX-License-Identifier: Apache-2.0
// Calls what libin_front.so stands in front of, and allocates past it. Prints how many objects there are, 0 for none.
#define _GNU_SOURCE
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

static int count(struct dl_phdr_info* object, size_t size, void* found) {
  (void)object, (void)size;
  return ++*(int*)found, 0;
}

int main(void) {
  int found = 0;
  dl_iterate_phdr(count, &found);
  if (syscall(SYS_getppid) != getppid()) return 2;
  for (size_t size = 1; size < 3000000; size *= 3) free(realloc(malloc(size), size * 2));
  void* pages = mmap(NULL, 8192, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED || munmap(pages, 8192) != 0) return 3;
  puts(found > 3 ? "objects" : "none");
  return 0;
}
