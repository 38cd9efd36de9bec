// SPDX-License-Identifier: Apache-2.0
// The verbs of the tool. Each adds itself to the command line and, when called, leaves its exit status.
#pragma once

#include <CLI/CLI.hpp>

namespace quarl {

void add_run(CLI::App& app, int& exit_status);
void add_ctl(CLI::App& app, int& exit_status);
void add_dump(CLI::App& app, int& exit_status);
void add_reload(CLI::App& app, int& exit_status);
void add_release(CLI::App& app, int& exit_status);
void add_config(CLI::App& app, int& exit_status);
void add_completion(CLI::App& app, int& exit_status);
void add_man(CLI::App& app, int& exit_status);

}  // namespace quarl
