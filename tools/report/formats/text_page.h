// SPDX-License-Identifier: Apache-2.0
// The answers as text for a reader at a terminal.
#pragma once

#include "report/analysis/call_tree.h"
#include "report/formats/site_rows.h"

namespace quarl::report {

// "1,234 bytes in 5 blocks".
std::string in_blocks(const Usage& usage);
// The same of what the default rules leave out, with how to see it.
std::string kept_text(const Usage& usage);
// A line for each kind of what was left out, none for nothing.
void write_left_out(Output& output, const LeftOut& left_out);
// The frames of a site, or its name where it has none.
void write_place(Output& output, const Site& site);
// How many were left out, if any.
void write_remainder(Output& output, size_t shown, size_t all);

void write_heading(Output& output, Subject& subject);
void write_summary(Output& output, Subject& subject, size_t top);
// One paragraph a site, with its frames when it has any.
// `state`: what they all are, "unfreed".
void write_sites(Output& output, const SiteTable& sites, size_t top, const std::string& state);
// `order`: what stands above what.
void write_tree(Output& output, const CallNode& root, const char* order = "callers above, callees below");
// `left_out`: of the later log.
void write_changes(Output& output, const std::vector<SiteDifference>& changes, size_t top, const LeftOut& left_out);
void write_faults(Output& output, Subject& subject);
void write_threads(Output& output, const ThreadTallies& tallies);

}  // namespace quarl::report
