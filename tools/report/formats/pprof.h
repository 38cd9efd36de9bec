// What is held as a gzip'ed profile.proto, the input of pprof and of the tools that read its files.
#pragma once

#include <string>

#include "report/analysis/subject.h"

namespace quarl::report {

// Sample types: inuse_objects in count, inuse_space in bytes. Mappings carry build ids where the desk has the file.
std::string pprof_of(Subject& subject);

}  // namespace quarl::report
