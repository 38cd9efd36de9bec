// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "report/formats/json_document.h"
#include "report/formats/operation_name.h"
#include "report/reading/progress.h"
#include "report/verbs/answer.h"
#include "report/verbs/verbs.h"

namespace quarl::report {
namespace {

bool in_range(uint32_t value, const std::optional<uint32_t>& from, const std::optional<uint32_t>& to) {
  return (!from || value >= *from) && (!to || value <= *to);
}

bool holds_address(const OpRecord& record, const std::optional<uint32_t>& address) {
  return !address || *address == record.start_addr || *address - record.start_addr < record.size;
}

bool wanted_by_head(const EventFilter& filter, const OpRecord& record) {
  bool operation = filter.operations.empty() || std::find(filter.operations.begin(), filter.operations.end(),
                                                          record.operation) != filter.operations.end();
  return operation && (!filter.result || record.result == *filter.result) &&
         in_range(record.time, filter.since, filter.until) && holds_address(record, filter.address);
}

bool calls_function(const Frames& frames, const std::string& pattern) {
  return pattern.empty() || std::any_of(frames.begin(), frames.end(),
                                        [&](const Frame& frame) { return pattern_matches(pattern, frame.function); });
}

// Writes one record after the other, so that any number of them can pass.
class EventWriter {
 public:
  explicit EventWriter(Answer& answer) : output_(answer.output()), format_(answer.format()) {}

  void begin(const Json& head) {
    if (format_ == Format::kCsv) return write_csv_keys(output_, kColumns);
    if (format_ == Format::kText)
      return output_.print(
          "{}\n", output_.bold(fmt::format("{:>10} {:>8} {:>20} {:>15} {:>12} {:>10} {:>10}  {}", "sequence", "thread",
                                           "time", "operation", "result", "size", "address", "site")));
    std::string text = head.dump(2, ' ', false, Json::error_handler_t::replace);
    text.resize(text.rfind('\n'));
    output_.write(text + ",\n  \"events\": [");
  }

  void write(const OpRecord& record, const Frames& frames) {
    std::string site = site_name(frames);
    if (format_ == Format::kJson) return write_json(record, frames);
    if (format_ == Format::kCsv) return write_csv_row(output_, row_of(record, site));
    output_.print("{:>10} {:>8} {:>20} {:>15} {:>12} {:>10} 0x{:08x}  {}\n", record.seq_num, record.tid,
                  record.time == 0 ? "-" : clock_time(record.time).substr(0, 19), operation_name(record.operation),
                  result_name(record.result), record.size, record.start_addr, site);
  }

  void end() {
    if (format_ == Format::kJson) output_.print("{}]\n}}\n", count_ == 0 ? "" : "\n  ");
  }

 private:
  static std::vector<Cell> row_of(const OpRecord& record, const std::string& site) {
    return {uint64_t{record.seq_num},
            uint64_t{record.tid},
            uint64_t{record.time},
            std::string(operation_name(record.operation)),
            std::string(result_name(record.result)),
            uint64_t{record.size},
            uint64_t{record.start_addr},
            site};
  }

  void write_json(const OpRecord& record, const Frames& frames) {
    Json event = Json::object();
    std::vector<Cell> row = row_of(record, "");
    for (size_t column = 0; column + 1 < row.size(); ++column) event[kColumns[column].key] = to_json(row[column]);
    event["frames"] = frames_json(frames);
    output_.write((count_++ == 0 ? "\n    " : ",\n    ") + event.dump(-1, ' ', false, Json::error_handler_t::replace));
  }

  inline static const std::vector<Column> kColumns = {{"sequence", ""},  {"thread", ""}, {"time", ""},
                                                      {"operation", ""}, {"result", ""}, {"size", ""},
                                                      {"address", ""},   {"site", ""}};
  Output& output_;
  Format format_;
  uint64_t count_ = 0;
};

uint64_t write_matching(Answer& answer, Subject& subject, EventWriter& writer) {
  const EventFilter& filter = answer.options().events;
  RecordStream stream(subject.log(), subject.snapshot());
  Progress progress(subject.label(), stream.total());
  uint64_t written = 0;
  Chooser& chooser = subject.chooser();
  for (auto batch = stream.next(); !batch.empty() && written < filter.limit; batch = stream.next()) {
    for (const OpRecord& record : batch) {
      if (written == filter.limit) break;
      if (!wanted_by_head(filter, record)) continue;
      if (!chooser.takes(record.tid, record.size, record.time, trace_of(record))) continue;
      Frames frames = subject.symbolizer().trace(trace_of(record));
      if (!calls_function(frames, filter.function)) continue;
      writer.write(record, frames);
      ++written;
    }
    progress.update(stream.done());
  }
  return written;
}

}  // namespace

int report_events(const Options& options) {
  Answer answer(options);
  Subject subject = answer.open(options.files.front());
  EventWriter writer(answer);
  Json head = {{"schema", "quarl-report"}, {"version", kJsonVersion}, {"verb", "events"}};
  head["log"] = {{"file", subject.log().file().path()},
                 {"kind", name_of(subject.log().kind())},
                 {"process", subject.log().process_name()},
                 {"pid", subject.snapshot().header.pid},
                 {"notes", subject.log().notes()}};
  writer.begin(head);
  uint64_t written = write_matching(answer, subject, writer);
  writer.end();
  answer.finish(subject.log().notes());
  return written == 0 ? 1 : 0;
}

}  // namespace quarl::report
