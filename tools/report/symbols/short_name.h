// SPDX-License-Identifier: Apache-2.0
// C++ names as a reader wants them.
#pragma once

#include <string>

namespace quarl::report {

// A demangled name of more than 60 bytes with "..." for the arguments of templates, and for parameters where it is
// longer still; others as they are.
std::string short_name(const std::string& name);

}  // namespace quarl::report
