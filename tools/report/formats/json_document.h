// SPDX-License-Identifier: Apache-2.0
// The answers as JSON. docs/report-json.md describes every member; kJsonVersion grows when one changes its meaning.
#pragma once

#include "report/analysis/call_tree.h"
#include "report/formats/site_rows.h"

namespace quarl::report {

inline constexpr int kJsonVersion = 1;

// The members that every answer begins with.
Json json_head(const char* verb, Subject& subject, const Desk& desk);
Json log_json(Subject& subject);
void add_summary(Json& document, Subject& subject, size_t top);
// The members `suppressed` and `suppressed_by_default`.
void add_left_out(Json& document, const LeftOut& left_out);
// `member` is what all of them add up to.
void add_sites(Json& document, const SiteTable& sites, size_t top, const char* member);
Json tree_json(const CallNode& root);
Json changes_json(const std::vector<SiteDifference>& changes, size_t top);
Json faults_json(Subject& subject);

// Two blanks of indentation, a line end behind; bytes that are no UTF-8 are replaced.
void write_json(Output& output, const Json& document);

}  // namespace quarl::report
