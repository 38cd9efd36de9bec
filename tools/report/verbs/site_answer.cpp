// SPDX-License-Identifier: Apache-2.0
#include "report/verbs/site_answer.h"

#include <CLI/CLI.hpp>

#include "report/formats/folded.h"
#include "report/formats/json_document.h"
#include "report/formats/text_page.h"

namespace quarl::report {
namespace {

void write_site_json(Answer& answer, Subject& subject, const SiteTable& sites, const SiteAnswer& what) {
  Json document = json_head(what.verb, subject, answer.desk());
  document.update(what.about);
  add_sites(document, sites, answer.top(), what.member);
  if (answer.options().tree) document["tree"] = tree_json(build_call_tree(sites.sites()));
  document["warnings"] = answer.desk().warnings();
  write_json(answer.output(), document);
}

void write_site_text(Answer& answer, const SiteTable& sites, const SiteAnswer& what) {
  for (const std::string& line : what.lines) answer.output().print("{}\n", line);
  const bool traces = sites.grouping() == Grouping::kTrace && !answer.options().tree;
  if (traces) return write_sites(answer.output(), sites, answer.top(), what.state);
  write_left_out(answer.output(), sites.left_out());
  if (answer.options().tree) return write_tree(answer.output(), build_call_tree(sites.sites()));
  write_text(answer.output(),
             without_column(site_rows(sites.sites(), answer.top(), answer.output().names()), "source"));
}

}  // namespace

void require_traces(const Options& options) {
  bool traces = options.tree || options.format == Format::kFolded || options.format == Format::kPprof;
  if (traces && options.grouping != Grouping::kTrace) {
    throw CLI::ValidationError("--by", "a tree, folded stacks and pprof files are made of traces: use --by trace");
  }
}

void write_site_answer(Answer& answer, Subject& subject, const SiteTable& sites, const SiteAnswer& what) {
  switch (answer.format()) {
    case Format::kJson:
      return write_site_json(answer, subject, sites, what);
    case Format::kCsv:
      return write_csv(answer.output(), site_rows(sites.sites(), answer.top()));
    case Format::kFolded:
      return write_folded(answer.output(), sites.sites());
    default:
      return write_site_text(answer, sites, what);
  }
}

void require_records(Subject& subject, const char* why) {
  if (subject.log().kind() == LogKind::kRecords) return;
  throw std::runtime_error(fmt::format("{}: {} needs a record log (QUARL_OUTPUT_LOG), this is a {}", subject.label(),
                                       why, name_of(subject.log().kind())));
}

}  // namespace quarl::report
