// Texts for standard output that are made under hook_mutex and written when it has been released: where nobody reads
// them, the thread that prints waits, and none that allocates. Fault reports are not held back.
#pragma once

#include "platform/print.h"
#include "state/hook_lock.h"

namespace quarl {

// Written at once by a thread that does not hold the lock, or when there is no memory to keep it.
void hold_text(const Text& text);
[[gnu::format(printf, 1, 2)]] void hold_print(const char* pattern, ...);

// Those held so far, in their order, now the caller's.
struct HeldText;
HeldText* take_held_texts() REQUIRES(hook_mutex);
void write_held_texts(HeldText* texts);
void drop_held_texts(HeldText* texts);

// Has whatever else the holder of the lock prints written behind what it holds. Once, by the constructor.
void keep_texts_in_order();

}  // namespace quarl
