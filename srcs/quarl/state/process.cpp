// SPDX-License-Identifier: Apache-2.0
#include "state/process.h"

namespace quarl {

constinit int proc_pid = 0;
constinit char proc_name[16] = "";
constinit bool forked_child = false;
constinit int hooks_installed = 0;

}  // namespace quarl
