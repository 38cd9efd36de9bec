// SPDX-License-Identifier: Apache-2.0
#include "config/configuration.h"

#include <string.h>

#include "config/file_lines.h"
#include "config/forward_reader.h"
#include "config/items.h"
#include "platform/environment.h"
#include "platform/print.h"
#include "state/process.h"

namespace quarl {
namespace {

constexpr const char* kDefaultPath = "quarlcfg.ini";
constexpr int kPatience = 5000;  // milliseconds, for a pipe at start-up; a reload, under the lock, waits for nobody

constinit Items items GUARDED_BY(hook_mutex)(settings);

// Null where no place can be believed.
const char* configuration_path() {
  if (has_borrowed_rights()) return nullptr;
  const char* path = environment("QUARL_CFG_FILE");
  return path != nullptr ? path : kDefaultPath;
}

void tell_bad_line(const Line& line) {
  const char* text = line.error_text != nullptr ? line.error_text : line.key;
  const bool unsupported = line.error == LineError::kKeyTooLong || line.error == LineError::kValueLength;
  print_failure(kStderr, {"configuration"}, unsupported ? "Item %s is not support\n" : "Err item %s\n", text);
}

bool apply_default(const ItemRow& row, EffectHandler carry_out) REQUIRES(hook_mutex) {
  Effect effect;
  if (hook_mutex.ends_at_release() || !items.apply_default(row, &effect)) return false;
  carry_out(effect);
  return true;
}

}  // namespace

int apply_line(const char* text, EffectHandler carry_out) {
  if (hook_mutex.ends_at_release()) return -1;
  const Applied applied = items.apply(text);
  if (applied.outcome == Applied::kBadLine) tell_bad_line(applied.line);
  if (applied.outcome == Applied::kUnknown) {
    print_failure(kStderr, {"configuration"}, "Item %s is not support\n", applied.line.key);
  }
  if (applied.outcome == Applied::kSet) carry_out(applied.effect);
  return applied.names_item() ? 0 : -1;
}

int load_configuration(EffectHandler carry_out) {
  const char* path = configuration_path();
  ForwardReader file(hooks_installed != 0 ? 0 : kPatience);
  if (path == nullptr || !file.open(path)) return -1;
  const auto read_at = [&file](int64_t offset, char* buffer) { return file.read_at(offset, buffer); };
  for_each_line(read_at, [=](const char* line, int64_t) NO_THREAD_SAFETY_ANALYSIS { apply_line(line, carry_out); });
  for (const ItemRow& row : kItemRows) apply_default(row, carry_out);
  return 0;
}

void apply_defaults_without_file(EffectHandler carry_out) {
  const ItemRow* threads = find_item("QUARL_THREAD");
  for (const ItemRow& row : kItemRows) {
    if (!apply_default(row, carry_out) && &row == threads) carry_out(items.set(row, "0"));
  }
}

}  // namespace quarl
