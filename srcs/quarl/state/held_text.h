// SPDX-License-Identifier: Apache-2.0
// Messages that are made under hook_mutex are written when it has been released: where nobody reads them, the thread
// that prints waits, and none that allocates. They keep their order.
#pragma once

#include "platform/print.h"
#include "state/hook_lock.h"

namespace quarl {

// From now on. Once, by the constructor.
void hold_texts();

// A fault report goes to standard output at once, behind what is held.
void write_at_once(const Text& text) REQUIRES(hook_mutex);

// The messages held so far, now the caller's.
struct HeldText;
HeldText* take_held_texts() REQUIRES(hook_mutex);
void write_held_texts(HeldText* texts);
void drop_held_texts(HeldText* texts);

}  // namespace quarl
