// Where logs are made: the folder that QUARL_LOG_DIR names, else the process's current directory.
#pragma once

#include "platform/print.h"

namespace quarl {

// Reads the variable; once, at start-up: the application may change its environment later.
void settle_log_directory();

// The path of a log that is made now. A relative folder counts from the current directory; the bare name is left where
// that one has no path. Under hook_mutex (start-up excepted).
void place_log(const char* name, Text* path);

// Makes the named folder, in one that is there. False when none is named, or it cannot be made.
bool make_log_directory();

}  // namespace quarl
