// SPDX-License-Identifier: Apache-2.0
#include "report/reading/resident_events.h"

#include <filesystem>

#include "events/events_file.h"

namespace quarl::report {
namespace {

// The longest that a snapshot takes to be written, in seconds: an event further behind is another one's.
constexpr uint64_t kLongestWriting = 60;

// What the names of all logs of a process begin with: "app_101_quarl" of "app_101_quarlAll.log".
std::string stem_of(const std::string& name) {
  constexpr std::string_view kMark = "_quarl";
  size_t mark = name.rfind(kMark);
  return mark == std::string::npos ? name : name.substr(0, mark + kMark.size());
}

}  // namespace

std::vector<ResidentEvent> read_resident_events(const std::string& path, const Log& log, uint32_t pid) {
  const bool records = log.kind() == LogKind::kRecords;
  auto name_of_log = [records](const std::string& file) {
    std::string name = std::filesystem::path(file).filename().string();
    return records ? stem_of(name) : name;
  };
  const std::string wanted = name_of_log(log.file().path());
  std::vector<ResidentEvent> told;
  events::for_each_event(path, pid, [&](const events::Event& event) {
    events::Fields fields = event.fields();
    auto time = fields.time("time");
    if (event.kind() != "snapshot" || name_of_log(fields.text("path")) != wanted || !time) return;
    told.push_back({static_cast<uint64_t>(*time), fields.number("resident")});
  });
  return told;
}

std::vector<std::optional<uint64_t>> resident_at(const std::vector<Snapshot>& snapshots,
                                                 const std::vector<ResidentEvent>& events) {
  std::vector<std::optional<uint64_t>> found(snapshots.size());
  auto event = events.begin();
  for (size_t index = 0; index < snapshots.size(); ++index) {
    const uint64_t begun = snapshots[index].header.time;
    uint64_t latest = begun + kLongestWriting;
    if (index + 1 < snapshots.size()) latest = std::min<uint64_t>(latest, snapshots[index + 1].header.time);
    while (event != events.end() && event->time < begun) ++event;
    if (event != events.end() && begun != 0 && event->time <= latest) found[index] = (event++)->resident;
  }
  return found;
}

}  // namespace quarl::report
