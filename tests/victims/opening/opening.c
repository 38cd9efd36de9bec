// SPDX-License-Identifier: Apache-2.0
// Opens a library that prefers its own libraries' symbols, and has it release and resize the program's blocks and the
// reverse. Prints whose function the library calls, the program's or its own.
//
// opening dlopen|dlmopen|namespace FILE
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "../announce.h"

extern void* open_plugin(const char* name, int flags);
extern void* open_plugin_in(int own_namespace, const char* name, int flags);

const char* whose(void) {
  return "program";
}

static void* handle;
static void* (*allocate)(size_t);
static void* (*resize)(void*, size_t);
static void (*release)(void*);

static void* find(const char* name) {
  void* found = dlsym(handle, name);
  if (found == NULL) exit(3);
  return found;
}

static int holds(const char* block, char byte, size_t size) {
  for (size_t i = 0; i < size; ++i)
    if (block[i] != byte) return 0;
  return 1;
}

static void* checked(void* block) {  // as a block of the checker names itself
  announce("headed", (void*)(size_t)((((size_t*)block)[-1] & ~(size_t)3) == (size_t)block));
  return block;
}

static void exchange(size_t size) {
  release(memset(malloc(size), 'm', size));
  free(checked(allocate(size)));
  char* block = resize(memset(malloc(size), 'm', size), size * 2);
  if (!holds(block, 'm', size)) exit(4);
  free(block);
  block = realloc(allocate(size), size * 2);
  if (!holds(block, 'p', size)) exit(5);
  release(block);
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  int apart = strcmp(argv[1], "namespace") == 0;
  int flags = RTLD_NOW | RTLD_DEEPBIND;
  handle = strcmp(argv[1], "dlopen") == 0 ? open_plugin(argv[2], flags) : open_plugin_in(apart, argv[2], flags);
  if (handle == NULL) return fprintf(stderr, "%s\n", dlerror()), 6;
  *(void**)&allocate = find("plugin_allocate");
  *(void**)&resize = find("plugin_resize");
  *(void**)&release = find("plugin_release");
  for (size_t size = 8; size < 1000000; size *= 5) {
    if (!apart) {
      exchange(size);
    } else {
      release(resize(checked(allocate(size)), size * 2));
    }
  }
  puts(((const char* (*)(void))find("bound_to"))());
  return dlclose(handle);
}
