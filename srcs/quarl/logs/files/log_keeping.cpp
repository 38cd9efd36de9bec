// SPDX-License-Identifier: Apache-2.0
#include "logs/files/log_keeping.h"

#include <string.h>

#include "logs/files/log_files.h"
#include "platform/environment.h"

namespace quarl {
namespace {

constinit bool findings_only = false;

}  // namespace

void settle_log_keeping() {
  const char* kept = environment("QUARL_KEEP");
  findings_only = kept != nullptr && strcmp(kept, "findings") == 0;
}

void remove_logs_that_say_nothing() {
  if (!findings_only) return;
  if (record_log.says_nothing()) record_log.remove();
  if (snapshot_log.says_nothing()) snapshot_log.remove();
}

}  // namespace quarl
