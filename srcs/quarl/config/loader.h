// The configuration file: quarlcfg.ini in the current directory, or the path in QUARL_CFG_FILE.
#pragma once

#include "quarlheap/lock/hook_lock.h"

namespace quarl {

// Applies the file's lines in order, then the defaults. 0 when the file could be opened, whatever it holds; else -1
// without a message.
int load_configuration() REQUIRES(hook_mutex);

}  // namespace quarl
