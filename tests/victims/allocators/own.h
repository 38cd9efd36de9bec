// SPDX-License-Identifier: Apache-2.0
// Between the pieces of an allocator of the tests.
#pragma once

#include <stddef.h>

#define EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

void* own_allocate(size_t size);  // what operator new allocates by, past the public malloc
extern void __libc_free(void* block);

#ifdef __cplusplus
}
#endif
