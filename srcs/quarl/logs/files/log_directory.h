// SPDX-License-Identifier: Apache-2.0
// Where logs are made: in the folder that QUARL_LOG_DIR names, else in the current directory, or, where none can be
// made there, in the one in which the process began: a daemon's logs, and those of its children, lie there.
#pragma once

#include "platform/print.h"

namespace quarl {

// Looks at the variable and the current directory; once, at start-up.
void settle_log_directory();

// The path of a log in the named folder or the current directory. One whose own path is not known leaves it relative.
// Under hook_mutex (start-up excepted).
void place_log(const char* name, Text* path);

// The path of a log in the directory in which the process began. False, with `path` as it was, when a folder was named
// or that one has no path.
bool place_log_at_start(const char* name, Text* path);

// Makes the named folder, in one that is there. False when none is named, or it cannot be made.
bool make_log_directory();

}  // namespace quarl
