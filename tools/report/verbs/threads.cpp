// SPDX-License-Identifier: Apache-2.0
#include "report/formats/json_document.h"
#include "report/formats/site_rows.h"
#include "report/formats/text_page.h"
#include "report/verbs/answer.h"
#include "report/verbs/refusals.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

void choose_thread(ThreadTallies& tallies, const Selection& selection, const std::string& label) {
  if (!selection.thread) return;
  std::erase_if(tallies.threads, [&](const ThreadTally& thread) { return thread.tid != *selection.thread; });
  if (tallies.threads.empty())
    throw std::runtime_error(fmt::format("{}: no thread {} was recorded", label, *selection.thread));
}

}  // namespace

int report_threads(const Options& options) {
  refuse_all_but_thread(options.selection, "a thread's figures are those of all its calls; only --thread chooses");
  Answer answer(options);
  Subject subject = answer.open(options.files.front(), {.threads = true});
  ThreadTallies tallies = subject.pass().threads();
  if (tallies.threads.empty()) {
    throw std::runtime_error(
        subject.label() + ": no thread was recorded (QUARL_THREAD, or QUARL_HEAD_TID with a record log, records them)");
  }
  choose_thread(tallies, options.selection, subject.label());
  if (options.format == Format::kJson) {
    Json document = json_head("threads", subject, answer.desk());
    document["source"] = tallies.from_table ? "thread table" : "records";
    document["seconds"] = tallies.seconds;
    document["threads"] = threads_json(tallies);
    write_json(answer.output(), document);
  } else if (options.format == Format::kCsv) {
    write_csv(answer.output(), thread_rows(tallies));
  } else {
    write_threads(answer.output(), tallies);
  }
  return answer.finish(subject.log().notes());
}

}  // namespace quarl::report
