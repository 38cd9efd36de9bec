#include "logs/files/log_directory.h"

#include <string.h>

#include "platform/environment.h"
#include "platform/system.h"

namespace quarl {
namespace {

constinit char log_directory[4096] = "";  // as long as a path may be; "" when none is named

// The directory in which a relative name lies, "" when it has no path.
const char* current_directory() {
  static char directory[4096];  // not on a stack that may be a small thread's
  const bool found = sys::current_directory(directory, sizeof directory) > 1 && directory[0] == '/';
  return found ? directory : "";
}

void put_directory(const char* directory, Text* path) {
  if (directory[0] == '\0') return;
  const bool ended = directory[strlen(directory) - 1] == '/';
  path->format(ended ? "%s" : "%s/", directory);
}

}  // namespace

void settle_log_directory() {
  const char* named = environment("QUARL_LOG_DIR");
  if (named != nullptr) strncpy(log_directory, named, sizeof log_directory - 1);
}

bool make_log_directory() {
  return log_directory[0] != '\0' && sys::make_directory(log_directory) == 0;
}

void place_log(const char* name, Text* path) {
  if (name[0] != '/') {
    if (log_directory[0] != '/') put_directory(current_directory(), path);
    put_directory(log_directory, path);
  }
  path->format("%s", name).terminate();
}

}  // namespace quarl
