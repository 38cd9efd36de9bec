// SPDX-License-Identifier: Apache-2.0
// What a page must see while the records go by: of a record log all that was ever held.
#pragma once

#include <optional>

#include "report/analysis/growth_watch.h"
#include "report/analysis/peak_watch.h"
#include "report/analysis/short_lived.h"
#include "report/analysis/subject.h"
#include "report/analysis/turnover.h"
#include "report/formats/page_cells.h"

namespace quarl::report {

class PageWatches {
 public:
  // Before anything is asked of `subject`, which must outlive it.
  explicit PageWatches(Subject& subject);

  const PageMoments& moments() const { return moments_; }
  // These read to the end. Only of a record log, see there().
  bool there() const { return peak_.has_value(); }
  const PeakWatch& peak();
  PageCells peak_cells();
  PageCells hot_cells();
  PageCells temporary_cells();
  // Of a record log by itself; snapshots are to be added.
  Growth& growth() { return growth_; }
  // What was released in all, of which the temporary blocks are a part.
  Usage released();

 private:
  static PageMoments moments_of(Subject& subject);

  Subject& subject_;
  PageMoments moments_;
  PageCells hot_cells_;
  PageCells temporary_cells_;
  std::optional<PeakWatch> peak_;
  std::optional<Turnover> turnover_;
  std::optional<ShortLived> short_lived_;
  Growth growth_;
  std::optional<GrowthWatch> growth_watch_;
};

}  // namespace quarl::report
