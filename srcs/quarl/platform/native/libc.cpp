// What the checker needs of an embedded C library that offers the hooks itself.
#include <pthread.h>
#include <string.h>

#include "platform/libc_hooks.h"

namespace quarl {

void prepare_raw_entries() {}

// The hooks stay with the library to the end; blocks never reach it without them.
void set_headed_block_access(const HeadedBlockAccess&) {}

// The order among libraries is that of their registration.
void set_fork_steps(const ForkSteps& steps) {
  pthread_atfork(steps.before, steps.in_parent, steps.in_child);
}

void end_thread() {
  pthread_exit(nullptr);
}

const char* error_text(int error) {
  return strerror(error);
}

}  // namespace quarl
