// SPDX-License-Identifier: Apache-2.0
// What is held, and of a record log what was ever allocated, as a gzip'ed profile.proto, the input of pprof and of the
// tools that read its files.
#pragma once

#include <string>

#include "report/analysis/subject.h"

namespace quarl::report {

// Sample types: inuse_objects in count, inuse_space in bytes, before them for a record log alloc_objects and
// alloc_space. Each sample has the thread that asked as a label. The subject must not have read its records yet.
// Mappings carry build ids where the desk has the file.
std::string pprof_of(Subject& subject);

}  // namespace quarl::report
