// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace quarl::report {

// `bytes` as one gzip member. Throws std::runtime_error when zlib fails.
std::string gzip(const std::string& bytes);

}  // namespace quarl::report
