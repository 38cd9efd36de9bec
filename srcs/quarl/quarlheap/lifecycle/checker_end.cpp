// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/lifecycle/checker_end.h"

#include "logs/files/log_files.h"
#include "logs/files/log_keeping.h"
#include "logs/files/maps_file.h"
#include "logs/records/record.h"
#include "logs/snapshots/snapshot_chain.h"
#include "quarlheap/hooks/hook_table.h"
#include "quarlheap/model/used_list.h"

namespace quarl {
namespace {

void close_log_files() REQUIRES(hook_mutex) {
  record_log.close();
  maps_file.close();
  snapshot_log.close();
  snapshot_chain.close();
  stop_recording();
}

}  // namespace

void end_checker() {
  restore_hooks();
  close_used_list();
  close_log_files();
  remove_logs_that_say_nothing();
}

bool checker_has_ended() {
  return used_list_closed;
}

}  // namespace quarl
