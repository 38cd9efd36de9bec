// SPDX-License-Identifier: Apache-2.0
#include "report/formats/folded.h"
#include "report/formats/html_page.h"
#include "report/formats/json_document.h"
#include "report/formats/pprof.h"
#include "report/formats/sqlite_import.h"
#include "report/formats/text_page.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

// The database is appended to, so it is no Output, which would begin with an empty file.
int import_all(const Options& options) {
  Options without_output = options;
  without_output.output.clear();
  Answer answer(without_output);
  SqliteImport database(options.output, answer.desk());
  std::vector<std::string> notes;
  for (const std::string& file : options.files) database.add(file, options.kind, notes);
  return answer.finish(notes);
}

// The page watches the records go by.
void write_page(Answer& answer, Subject& subject) {
  HtmlPage page(subject);
  answer.output().write(page.text(nullptr, answer.desk()));
}

void write(Answer& answer, Subject& subject) {
  switch (answer.format()) {
    case Format::kJson: {
      Json document = json_head("summary", subject, answer.desk());
      add_summary(document, subject, answer.top());
      document["warnings"] = answer.desk().warnings();
      return write_json(answer.output(), document);
    }
    case Format::kCsv:
      return write_csv(answer.output(), statistics_rows(subject));
    case Format::kFolded:
      return write_folded(answer.output(), subject.sites().sites());
    case Format::kPprof:
      return answer.output().write(pprof_of(subject));
    case Format::kHtml:
      return write_page(answer, subject);
    default:
      return write_summary(answer.output(), subject, answer.top());
  }
}

}  // namespace

int summarise(const Options& options) {
  if (options.format == Format::kSqlite) return import_all(options);
  Answer answer(options);
  bool page = options.format == Format::kHtml;
  Subject subject = answer.open(options.files.front(), {.timeline = page, .threads = page});
  write(answer, subject);
  if (answer.format() != Format::kCsv) answer.note_left_out(subject.sites().left_out());
  int status = answer.finish(subject);
  return status != 0 ? status : answer.judge(subject.sites().total(), subject.losses());
}

}  // namespace quarl::report
