// SPDX-License-Identifier: Apache-2.0
// <malloc.h> without what the headers of glibc before 2.34 say of its hook variables: those here are libc_hooks.h's.
#pragma once

#define __malloc_hook quarl_libc_malloc_hook
#define __free_hook quarl_libc_free_hook
#define __realloc_hook quarl_libc_realloc_hook
#define __memalign_hook quarl_libc_memalign_hook
#define __malloc_initialize_hook quarl_libc_malloc_initialize_hook
#include <malloc.h>
#undef __malloc_hook
#undef __free_hook
#undef __realloc_hook
#undef __memalign_hook
#undef __malloc_initialize_hook
