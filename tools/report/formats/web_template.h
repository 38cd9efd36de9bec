// SPDX-License-Identifier: Apache-2.0
// The page without its data, bundled from the web folder when the tool was built.
#pragma once

#include <string_view>

namespace quarl::report {

std::string_view web_template();

}  // namespace quarl::report
