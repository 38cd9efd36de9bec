// SPDX-License-Identifier: Apache-2.0
// Functions of the objects that make up the process, found without the loader's own search: that may allocate, and it
// binds a name to whoever defines it first. Reads the objects' tables only; takes the loader's lock, allocates nothing,
// and works before any constructor has run.
#pragma once

#include <cstdint>

namespace quarl::glibc {

struct FoundFunction {
  void* address = nullptr;
  bool ours = false;  // defined by this library
};

// The definition that a call of that name reaches.
FoundFunction first_function(const char* name);

// The definition that it would reach without this library.
void* next_function(const char* name);

// This library's own definition that others see.
void* own_function(const char* name);

// The C library's own definition, of a function or an object, whoever else defines the name. Null: there is none.
void* libc_symbol(const char* name);

}  // namespace quarl::glibc
