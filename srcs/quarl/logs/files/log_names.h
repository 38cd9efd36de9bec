// SPDX-License-Identifier: Apache-2.0
// The names of the three log files, made of the process's name and id.
#pragma once

namespace quarl {

inline constexpr int kNameSize = 256;

extern char record_log_name[kNameSize];
extern char snapshot_log_name[kNameSize];
extern char autosnap_log_name[kNameSize];

// PREFIX_NAME_PID_quarlAll.log for the record log, without the prefix when it is empty; NAME_PID_quarl.log and
// NAME_PID_quarl_autosnap.log for the others. The prefix has at most 15 characters and is remembered.
void set_log_names(const char* prefix);

// The one in use, "" for none.
const char* log_prefix();

// In a forked child: the same with its own id.
void renew_log_names();

}  // namespace quarl
