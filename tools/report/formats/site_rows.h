// SPDX-License-Identifier: Apache-2.0
// Sites, differences, statistics and the like as tables and JSON.
#pragma once

#include "report/analysis/difference.h"
#include "report/analysis/histogram.h"
#include "report/analysis/site_table.h"
#include "report/analysis/subject.h"
#include "report/analysis/timeline.h"
#include "report/formats/table.h"

namespace quarl::report {

Table site_rows(const std::vector<Site>& sites, size_t limit, Names names = Names::kWhole);
Table difference_rows(const std::vector<SiteDifference>& changes);
// Calls, failures and bytes per operation, as the library's own table groups them; from the records where the log has
// no statistics.
Table statistics_rows(Subject& subject);
Histogram histogram_of_unfreed(Subject& subject);
Table histogram_rows(const Histogram& histogram);
Table timeline_rows(const Timeline& timeline);
Table thread_rows(const ThreadTallies& tallies);
// Those rows, with `peak_exact` where there is a peak.
Json threads_json(const ThreadTallies& tallies);

Json site_json(const Site& site);
Json frames_json(const Frames& frames);
Json usage_json(const Usage& usage);

}  // namespace quarl::report
