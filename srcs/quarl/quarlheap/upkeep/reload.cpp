// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/upkeep/reload.h"

#include "config/configuration.h"
#include "logs/files/log_files.h"
#include "quarlheap/upkeep/configuration_event.h"
#include "quarlheap/upkeep/effects.h"

namespace quarl {

void reload() {
  clear_flag(settings.cfg_flags, kReloadRequest);
  load_configuration(carry_out);
  tell_configuration();
  if (hook_mutex.ends_at_release()) return;
  open_log_files();
}

}  // namespace quarl
