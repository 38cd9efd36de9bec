// SPDX-License-Identifier: Apache-2.0
// The function is found at the first call, which is one of the checker's own at its start: a child of a program with
// threads could not take the loader's lock any more.
#include "platform/system_call.h"

#include <stdarg.h>

#include "platform/glibc/loaded_symbols.h"

namespace quarl {
namespace {

long first_call(long number, ...) {
  va_list rest;
  va_start(rest, number);
  const long words[6] = {va_arg(rest, long), va_arg(rest, long), va_arg(rest, long),
                         va_arg(rest, long), va_arg(rest, long), va_arg(rest, long)};
  va_end(rest);
  const auto found = reinterpret_cast<SystemCall>(glibc::libc_symbol("syscall"));
  __atomic_store_n(&system_call, found, __ATOMIC_RELAXED);
  return found(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

}  // namespace

constinit SystemCall system_call = first_call;

}  // namespace quarl
