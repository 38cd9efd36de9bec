// SPDX-License-Identifier: Apache-2.0
#include "report/formats/web_template.h"

// Both are made by web_template.s, which takes the bundled page in as it is.
extern "C" const char quarl_web_template[];
extern "C" const char quarl_web_template_end[];

namespace quarl::report {

std::string_view web_template() {
  return {quarl_web_template, static_cast<size_t>(quarl_web_template_end - quarl_web_template)};
}

}  // namespace quarl::report
