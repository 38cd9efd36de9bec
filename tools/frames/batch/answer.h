// SPDX-License-Identifier: Apache-2.0
// What is told of the tables that were made: for people, and for programs.
#pragma once

#include <string>
#include <vector>

#include "frames/batch/batch.h"

namespace quarl::frames {

std::string text_answer(const std::vector<Outcome>& outcomes, bool compared);
std::string json_answer(const std::vector<Outcome>& outcomes, bool compared);

}  // namespace quarl::frames
