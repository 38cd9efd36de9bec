// SPDX-License-Identifier: Apache-2.0
// The item table as text for people.
#pragma once

#include <string>

namespace quarl {

std::string item_list();       // for a terminal
std::string item_template();   // a configuration file that changes nothing, every item commented
std::string item_reference();  // docs/configuration.md

}  // namespace quarl
