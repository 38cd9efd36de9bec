// SPDX-License-Identifier: Apache-2.0
// The options that the verbs share, for CLI11.
#pragma once

#include <CLI/CLI.hpp>

#include "report/verbs/options.h"

namespace quarl::report {

void add_format_options(CLI::App& command, Options& options, const std::vector<Format>& formats);
// Where the log's files and symbols are.
void add_reading_options(CLI::App& command, Options& options);
// Which blocks and mappings the answer is about.
void add_selection_options(CLI::App& command, Selection& selection);
// Grouping of sites, and how many.
void add_grouping_options(CLI::App& command, Options& options);
// Which sites come first.
void add_order_option(CLI::App& command, Options& options);
// What the callers asked for: what is held, or another view.
void add_view_option(CLI::App& command, Options& options);
// How soon a block must go to be temporary.
void add_within_option(CLI::App& command, Options& options);
void add_suppression_options(CLI::App& command, Options& options);
// Grouping, suppression and judgement of sites.
void add_site_options(CLI::App& command, Options& options);
void add_event_options(CLI::App& command, EventFilter& filter);

// True when `name` was given on the command line.
bool has_option(const CLI::App& command, const std::string& name);

}  // namespace quarl::report
