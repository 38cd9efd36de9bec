// SPDX-License-Identifier: Apache-2.0
// Where split debug files are looked for.
#pragma once

#include <string>
#include <vector>

namespace quarl::frames {

// As ElfModule takes it. Without `debug_dirs` it is /usr/lib/debug; those of the sysroots are looked at in both cases.
std::string debug_path(const std::vector<std::string>& debug_dirs, const std::vector<std::string>& sysroots);

}  // namespace quarl::frames
