// SPDX-License-Identifier: Apache-2.0
// Whose promises the public entries keep: those of the hooks, passed on as they are (plain), or those of glibc, for
// which glibc's programs were written (libc): a block for a request of 0 bytes, alignment of its blocks, ENOMEM, a
// standard output of their own. Chosen by QUARL_CONTRACT when the library starts.
#pragma once

#include <cstddef>

extern "C" __attribute__((visibility("hidden"))) int quarl_libc_contract;  // 1: glibc's; read by entries in assembly

namespace quarl::glibc {

// What glibc aligns every block to on this processor.
inline constexpr size_t kLibcAlignment = alignof(max_align_t) > 8 ? 16 : 8;

void choose_contract();

// The second number of the running glibc's version.
int libc_minor_version();

// Before 2.38 glibc's aligned_alloc rounded an alignment that is no power of two up, as memalign does.
bool aligned_alloc_takes_any();

// A request of 0 bytes is to get a block: through the memalign hook, which makes one.
inline bool wants_empty_block(size_t size) {
  return __builtin_expect(size == 0, 0) && quarl_libc_contract != 0;
}

}  // namespace quarl::glibc
