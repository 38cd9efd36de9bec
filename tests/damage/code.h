// SPDX-License-Identifier: Apache-2.0
// Whose code an address is.
#pragma once

#include <stdint.h>

enum Owner { kNobody, kChecker, kAllocator, kOther };  // kAllocator: the C library's allocator, and its loader

void learn_code(void);
enum Owner owner_of(uintptr_t address);

// An address in code behind a call instruction. Reads nothing but code.
int is_code(uintptr_t address);

// "libquarl.so+0x1234", or the number; in a buffer that the next call uses again.
const char* name_of(uintptr_t address);
