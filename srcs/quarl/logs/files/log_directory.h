// Where logs are made: the folder that QUARL_LOG_DIR names, else the directory in which the process began. Both are
// settled at start-up, so that a daemon that changes directory, and its children, find them.
#pragma once

#include "platform/print.h"

namespace quarl {

// Looks at the variable and the current directory; once, at start-up.
void settle_log_directory();

// The path of a log in that folder. A folder whose own path is not known leaves it relative.
void place_log(const char* name, Text* path);

// The path of a log in the directory that is current now, for one that cannot be made where it belongs. False, with
// `path` as it was, when a folder was named or this one has no path. Under hook_mutex (start-up excepted).
bool place_log_here(const char* name, Text* path);

// Makes the named folder, in one that is there. False when none is named, or it cannot be made.
bool make_log_directory();

}  // namespace quarl
