// SPDX-License-Identifier: Apache-2.0
#include "logs/files/log_directory.h"

#include <string.h>

#include "platform/environment.h"
#include "platform/system.h"

namespace quarl {
namespace {

constexpr size_t kPathSize = 4096;  // as long as a path may be

constinit char settled[kPathSize] = "";  // the named folder, else where the process began; "" when it has no path
constinit bool named = false;            // by QUARL_LOG_DIR

void put_directory(const char* directory, Text* path) {
  if (directory[0] == '\0') return;
  const bool ended = directory[strlen(directory) - 1] == '/';
  path->format(ended ? "%s" : "%s/", directory);
}

// The current directory, "" when it has no path.
const char* current_directory() {
  static char directory[kPathSize];  // not on a stack that may be a small thread's
  const bool found = sys::current_directory(directory, sizeof directory) > 1 && directory[0] == '/';
  return found ? directory : "";
}

}  // namespace

void settle_log_directory() {
  const char* folder = environment("QUARL_LOG_DIR");
  named = folder != nullptr && folder[0] != '\0';
  Text path(settled, sizeof settled);
  if (!named || folder[0] != '/') put_directory(current_directory(), &path);
  path.format("%s", named ? folder : "").terminate();
}

bool make_log_directory() {
  return named && sys::make_directory(settled) == 0;
}

void place_log(const char* name, Text* path) {
  if (name[0] != '/') put_directory(named ? settled : current_directory(), path);
  path->format("%s", name).terminate();
}

bool place_log_at_start(const char* name, Text* path) {
  if (named || name[0] == '/' || settled[0] == '\0') return false;
  put_directory(settled, path);
  path->format("%s", name).terminate();
  return true;
}

}  // namespace quarl
