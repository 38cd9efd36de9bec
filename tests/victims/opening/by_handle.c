// SPDX-License-Identifier: Apache-2.0
// Opens the C library and takes its functions from that handle, as bindings of other languages do; blocks go from these
// to the program's own and back. Prints whether the program calls the same free.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void* handle;

#ifdef __arm__
static const char first_version[] = "GLIBC_2.4";
#else
static const char first_version[] = "GLIBC_2.0";
#endif

static void* find(const char* name) {
  void* found = dlsym(handle, name);
  if (found == NULL) exit(3);
  return found;
}

#define OPENED(result, name, ...) result (*opened_##name)(__VA_ARGS__) = (result(*)(__VA_ARGS__))find(#name)

int main(void) {
  handle = dlopen("libc.so.6", RTLD_LAZY);
  if (handle == NULL || dlsym(handle, "no_such_function") != NULL || dlerror() == NULL) return 2;
  OPENED(void*, malloc, size_t);
  OPENED(void*, realloc, void*, size_t);
  OPENED(void, free, void*);
  OPENED(size_t, malloc_usable_size, void*);
  OPENED(char*, strdup, const char*);
  for (size_t size = 10; size < 1000000; size *= 3) {
    opened_free(malloc(size));
    free(opened_malloc(size));
    opened_free(realloc(opened_malloc(size), size * 2));
    void* block = opened_realloc(malloc(size), size * 2);
    if (opened_malloc_usable_size(block) < size * 2) return 4;
    free(block);
  }
  opened_free(opened_strdup("a text"));
  opened_free(strdup("a text"));
  if (dlvsym(handle, "free", first_version) != (void*)opened_free || dlvsym(handle, "free", "NONE") != NULL) return 5;
  puts(opened_free == free ? "the same" : "another");
  return dlclose(handle);
}
