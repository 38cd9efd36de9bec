// SPDX-License-Identifier: Apache-2.0
// The page: one file that needs nothing else.
#pragma once

#include <memory>
#include <string>

#include "report/analysis/subject.h"

namespace quarl::report {

class PageWatches;

class HtmlPage {
 public:
  // Before anything is asked of `subject`, of which the timeline and the threads are wanted: the page watches the
  // records go by.
  explicit HtmlPage(Subject& subject);
  ~HtmlPage();
  // Its flame graph shows differences to `before` when that is given, and otherwise between the snapshots of the log.
  std::string text(Subject* before, const Desk& desk);

 private:
  Subject& subject_;
  std::unique_ptr<PageWatches> watches_;
};

}  // namespace quarl::report
