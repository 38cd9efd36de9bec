#include "config/items.h"

#include <cstring>

#include "config/item_handlers.h"
#include "config/line.h"
#include "platform/print.h"

namespace quarl {
namespace {

constexpr ItemRows make_rows() {
  ItemRows table{};
  for (int i = 0; i < kItemCount; ++i) {
    const ItemInfo& info = kItemTable[i];
    table.rows[i] = {info.key, kItemHandlers[i], info.default_on, 0, info.resettable};
  }
  return table;
}

void apply(Item& item, const char* value) {
  item.handler(value);
  item.is_set = 1;
}

Item* find_item(const char* key) REQUIRES(hook_mutex) {
  for (Item* item = items.rows; item->name != nullptr; ++item) {
    if (strcmp(item->name, key) == 0) return item;
  }
  return nullptr;
}

void tell_error(const Line& line) {
  const char* text = line.error_text != nullptr ? line.error_text : line.key;
  const bool unsupported = line.error == LineError::kKeyTooLong || line.error == LineError::kValueLength;
  print(kStderr, unsupported ? "Item %s is not support\n" : "Err item %s\n", text);
}

bool wants_default(const Item& item) {
  return item.is_set != 1 && item.default_on != 0;
}

}  // namespace

constinit ItemRows items = make_rows();

int apply_line(const char* text) {
  Line line = parse_line(text);
  if (line.error != LineError::kNone) {
    tell_error(line);
    return -1;
  }
  Item* item = find_item(line.key);
  if (item == nullptr) {
    print(kStderr, "Item %s is not support\n", line.key);
    return -1;
  }
  if (item->is_set == 1 && item->resettable == 0) return 0;
  item->is_set = 1;
  item->handler(line.value);
  return 0;
}

void apply_defaults() {
  for (Item* item = items.rows; item->name != nullptr; ++item) {
    if (wants_default(*item)) apply(*item, "1");
  }
}

void apply_defaults_without_file() {
  for (Item* item = items.rows; item->name != nullptr; ++item) {
    if (wants_default(*item)) {
      apply(*item, "1");
    } else if (strcmp(item->name, "QUARL_THREAD") == 0) {
      apply(*item, "0");
    }
  }
}

}  // namespace quarl
