// The command line: all verbs in one CLI11 application, from which help, completion and manual page are made.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>

namespace quarl {

std::unique_ptr<CLI::App> make_app(int& exit_status);

}  // namespace quarl
