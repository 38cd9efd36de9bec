// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "report/formats/folded.h"
#include "report/formats/html_page.h"
#include "report/formats/json_document.h"
#include "report/formats/text_page.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

void write_json_of(Answer& answer, Subject& before, Subject& after, const std::vector<SiteDifference>& changes) {
  const Grouping grouping = answer.options().grouping;
  Json document = json_head("diff", after, answer.desk());
  document["before"] = log_json(before);
  add_left_out(document["before"], before.sites(grouping).left_out());
  add_left_out(document, after.sites(grouping).left_out());
  document["change_count"] = changes.size();
  document["changes"] = changes_json(changes, answer.top());
  write_json(answer.output(), document);
}

// Those of the earlier log that the later one does not have as well, in front.
std::vector<std::string> all_notes(Subject& before, Subject& after) {
  std::vector<std::string> notes, later = after.notes();
  for (const std::string& note : before.notes()) {
    if (std::find(later.begin(), later.end(), note) == later.end()) notes.push_back(before.label() + ": " + note);
  }
  notes.insert(notes.end(), later.begin(), later.end());
  return notes;
}

// What grew in sum is what a build server minds.
Usage growth(const Usage& before, const Usage& after) {
  return {after.bytes - std::min(before.bytes, after.bytes), after.count - std::min(before.count, after.count)};
}

}  // namespace

int report_difference(const Options& options) {
  Answer answer(options);
  bool page = options.format == Format::kHtml;  // always by trace
  Subject before = answer.open(options.files[0]);
  Subject after = answer.open(options.files[1], {.timeline = page, .threads = page});
  std::optional<HtmlPage> html;
  if (page) html.emplace(after);  // before anything is asked
  const SiteTable& earlier = before.sites(page ? Grouping::kTrace : options.grouping);
  const SiteTable& later = after.sites(page ? Grouping::kTrace : options.grouping);
  std::vector<SiteDifference> changes = difference(earlier.sites(), later.sites());
  switch (options.format) {
    case Format::kJson:
      write_json_of(answer, before, after, changes);
      break;
    case Format::kCsv:
      write_csv(answer.output(), difference_rows(changes));
      break;
    case Format::kFolded:
      write_folded(answer.output(), changes);
      break;
    case Format::kHtml:
      answer.output().write(html->text(&before, answer.desk()));
      break;
    default:
      write_changes(answer.output(), changes, answer.top(), later.left_out());
  }
  answer.note_left_out(later.left_out());
  std::vector<std::string> losses = before.losses();
  for (const std::string& loss : after.losses()) losses.push_back(loss);
  int status = answer.finish(all_notes(before, after));
  return status != 0 ? status : answer.judge(growth(earlier.total(), later.total()), losses);
}

}  // namespace quarl::report
