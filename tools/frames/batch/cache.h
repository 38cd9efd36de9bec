// SPDX-License-Identifier: Apache-2.0
// Tables that are kept from run to run.
#pragma once

#include <string>
#include <vector>

namespace quarl::frames {

struct CachedTables {
  std::string folder;  // empty when there can be none
  size_t made = 0;     // tables that were not there yet
};

// Makes the tables of these files that are not in the cache yet, with the debug files of this machine and of the
// sysroot. Files that get none are passed over.
CachedTables cached_tables(const std::vector<std::string>& files, const std::string& sysroot);

}  // namespace quarl::frames
