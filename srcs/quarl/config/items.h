// The configuration items: what each value does. One row for each of the 36 keys, in the order in which defaults are
// applied.
#pragma once

#include <cstdint>

#include "config/item_table.h"
#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// Applies a value of 1 to 15 characters; always 0. Every text maps to some state, none is refused.
using ItemHandler = int (*)(const char* value);

struct Item {
  const char* name;
  ItemHandler handler;
  uint8_t default_on;
  uint8_t is_set;  // becomes 1 when the item is first applied, from any source, and stays so
  uint16_t resettable;
};

// kItemCount rows and an all-zero one behind them.
struct ItemRows {
  Item rows[kItemCount + 1];
};
extern ItemRows items GUARDED_BY(hook_mutex);

// Applies one line of text, from a file or a packet. 0 when it names an item, also when that may not be set again; -1
// with a message on standard error otherwise.
int apply_line(const char* text) REQUIRES(hook_mutex);

// Applies "1" to every default-on item that nothing has set.
void apply_defaults() REQUIRES(hook_mutex);

// The same for a process without a configuration file; QUARL_THREAD gets "0" as well.
void apply_defaults_without_file() REQUIRES(hook_mutex);

}  // namespace quarl
