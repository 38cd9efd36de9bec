// SPDX-License-Identifier: Apache-2.0
// A library that is opened as it runs: blocks cross its border in both directions.
#include <stdlib.h>
#include <string.h>

// The program defines it as well: which of the two is called tells how the library was bound.
const char* whose(void) {
  return "library";
}
const char* bound_to(void) {
  return whose();
}

void* plugin_allocate(size_t size) {
  return memset(malloc(size), 'p', size);
}
void* plugin_resize(void* block, size_t size) {
  return realloc(block, size);
}
void plugin_release(void* block) {
  free(block);
}
