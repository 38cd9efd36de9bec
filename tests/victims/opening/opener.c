// SPDX-License-Identifier: Apache-2.0
// A library that opens another, which only its own run path leads to.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stddef.h>

void* open_plugin(const char* name, int flags) {
  return dlopen(name, flags);
}
void* open_plugin_in(int own_namespace, const char* name, int flags) {
  return dlmopen(own_namespace ? LM_ID_NEWLM : LM_ID_BASE, name, flags);
}
