// SPDX-License-Identifier: Apache-2.0
#include "logs/files/log_names.h"

#include <string.h>

#include "platform/print.h"
#include "state/process.h"

namespace quarl {

constinit char record_log_name[kNameSize] = "program_default_record.log";
constinit char snapshot_log_name[kNameSize] = "unfree_memory_snapshot.log";
constinit char autosnap_log_name[kNameSize] = "";

namespace {

constinit char prefix_in_use[16] = "";

void set_name(char (&name)[kNameSize], const char* prefix, const char* tail) {
  memset(name, 0, kNameSize);
  Text text(name, kNameSize);
  if (prefix[0] != '\0') text.format("%s_", prefix);
  text.format("%s_%d%s", proc_name, proc_pid, tail).terminate();
}

}  // namespace

void set_log_names(const char* prefix) {
  strncpy(prefix_in_use, prefix, sizeof prefix_in_use - 1);
  renew_log_names();
}

const char* log_prefix() {
  return prefix_in_use;
}

void renew_log_names() {
  set_name(record_log_name, prefix_in_use, "_quarlAll.log");
  set_name(snapshot_log_name, "", "_quarl.log");
  set_name(autosnap_log_name, "", "_quarl_autosnap.log");
}

}  // namespace quarl
