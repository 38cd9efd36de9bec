// SPDX-License-Identifier: Apache-2.0
#include "frames/loader.h"

#include <link.h>
#include <string.h>
#include <sys/auxv.h>

// Not every loader and not every C library has them.
#pragma weak _r_debug
extern "C" [[gnu::weak]] const char* gnu_get_libc_version();

namespace quarl {
namespace {

// Since 2.35 the states of all namespaces (dlmopen) are in a list that only grows; those before show that of the first.
constexpr long kListsAllSince = 35;

struct NamespaceState {
  r_debug state;
  NamespaceState* next;  // there from version 2 of the first one's state on
};

bool tells_of_all() {
  static constinit int answer = -1;
  if (answer < 0 && gnu_get_libc_version != nullptr) {
    const char* minor = strchr(gnu_get_libc_version(), '.');
    long number = 0;
    while (minor != nullptr && *++minor >= '0' && *minor <= '9') number = number * 10 + (*minor - '0');
    answer = number >= kListsAllSince ? 1 : 0;
  }
  return answer == 1;
}

}  // namespace

// What the kernel says of it is wrong where it was started as the program.
uint32_t loader_bias() {
  return &_r_debug != nullptr ? _r_debug.r_ldbase : static_cast<uint32_t>(getauxval(AT_BASE));
}

bool loader_may_be_loading() {
  if (&_r_debug == nullptr || !tells_of_all()) return true;
  if (_r_debug.r_state != r_debug::RT_CONSISTENT) return true;
  if (__atomic_load_n(&_r_debug.r_version, __ATOMIC_ACQUIRE) < 2) return false;
  const auto* each = reinterpret_cast<const NamespaceState*>(&_r_debug);
  while ((each = __atomic_load_n(&each->next, __ATOMIC_ACQUIRE)) != nullptr) {
    if (each->state.r_state != r_debug::RT_CONSISTENT) return true;
  }
  return false;
}

}  // namespace quarl
