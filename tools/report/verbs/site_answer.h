// SPDX-License-Identifier: Apache-2.0
// Sites as an answer, in every format that can show them.
#pragma once

#include "report/formats/table.h"
#include "report/verbs/answer.h"

namespace quarl::report {

struct SiteAnswer {
  const char* verb;
  std::string state;               // of the blocks, for text: "unfreed"
  const char* member;              // of JSON, that tells what they add up to: "unfreed"
  Json about;                      // further members of JSON
  std::vector<std::string> lines;  // to stand in text above the sites
};

// Refuses formats and trees that are made of traces where the sites are grouped by something else.
void require_traces(const Options& options);

void write_site_answer(Answer& answer, Subject& subject, const SiteTable& sites, const SiteAnswer& what);

// Throws std::runtime_error unless the log has a record of each operation.
void require_records(Subject& subject, const char* why);

}  // namespace quarl::report
