// SPDX-License-Identifier: Apache-2.0
// "quarl story FILE": an events file as text.
#pragma once

#include <CLI/CLI.hpp>

namespace quarl::story {

void add_verb(CLI::App& app, int& exit_status);

}  // namespace quarl::story
