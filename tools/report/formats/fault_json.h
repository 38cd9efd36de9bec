// SPDX-License-Identifier: Apache-2.0
// A fault as JSON, for the documents and the page.
#pragma once

#include <functional>

#include "report/analysis/subject.h"
#include "report/formats/table.h"

namespace quarl::report {

// How a document holds a call trace: by which key, and what stands there.
struct TraceMember {
  const char* key;
  std::function<Json(const Frames&)> value;
};

Json fault_json(Subject& subject, const Fault& fault, const TraceMember& trace);

}  // namespace quarl::report
