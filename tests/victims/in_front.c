// SPDX-License-Identifier: Apache-2.0
// Stands in front of functions of the C library, as libraries do that move a program into another network or another
// root: it asks an opened C library for the functions' own definitions, and lets only the program's own call pass.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <link.h>
#include <stdlib.h>
#include <sys/syscall.h>

static void* next(const char* name) {
  void* handle = dlopen("libc.so.6", RTLD_LAZY);
  return handle != NULL ? dlsym(handle, name) : NULL;
}

long syscall(long number, ...) {
  if (number != SYS_getppid) abort();
  long (*own)(long, ...) = (long (*)(long, ...))next("syscall");
  return own(number);
}

int dl_iterate_phdr(int (*each)(struct dl_phdr_info*, size_t, void*), void* data) {
  int (*own)(int (*)(struct dl_phdr_info*, size_t, void*), void*) =
      (int (*)(int (*)(struct dl_phdr_info*, size_t, void*), void*))next("dl_iterate_phdr");
  return own(each, data);
}
