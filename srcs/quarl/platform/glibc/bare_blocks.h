// Blocks that the layer gave out without a header: a bit for every eight bytes of the address space, in leaves that are
// mapped when the first such block lies there. No lock; safe in a signal handler.
#pragma once

namespace quarl::glibc {

// Null is no block. A block for whose bit there is no memory is not remembered.
void note_bare_block(void* block);

// Whether it is one; from then on it is none.
bool forget_bare_block(void* block);

}  // namespace quarl::glibc
