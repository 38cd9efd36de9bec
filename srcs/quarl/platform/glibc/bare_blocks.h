// SPDX-License-Identifier: Apache-2.0
// Blocks that the layer gave out without a header: a bit for every eight bytes of the address space, in leaves that are
// made, in the C library's heap, when the first such block lies there. No lock; noting is as safe in a signal handler
// as the allocation was, the rest is safe.
#pragma once

namespace quarl::glibc {

// Null is no block. A block for whose bit there is no memory is not remembered.
void note_bare_block(void* block);

// Whether it is one; from then on it is none.
bool forget_bare_block(void* block);

}  // namespace quarl::glibc
