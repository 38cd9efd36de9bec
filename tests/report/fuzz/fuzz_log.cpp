// SPDX-License-Identifier: Apache-2.0
// Any bytes as a log: reading, matching and summing up must end without a fault and with bounded memory.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "report/analysis/histogram.h"
#include "report/analysis/record_pass.h"
#include "report/reading/log_error.h"

namespace {

using namespace quarl::report;

// A file in memory; the reader takes paths.
class MemoryFile {
 public:
  MemoryFile(const uint8_t* bytes, size_t size) : descriptor_(memfd_create("log", 0)) {
    if (write(descriptor_, bytes, size) != static_cast<ssize_t>(size)) abort();
  }
  ~MemoryFile() { close(descriptor_); }
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

void answer(const Log& log, const Snapshot& snapshot) {
  RecordPass pass(log, snapshot, {.timeline = true, .threads = true});
  pass.threads();
  const Ledger& ledger = pass.ledger();
  uint64_t bytes = 0, entries = 0;
  ledger.for_each_held([&](const LiveEntry& entry) {
    bytes += entry.size;
    ++entries;
  });
  const Held& held = ledger.held();
  if (bytes != held.bytes + held.file_bytes || entries != held.entries) abort();
  uint64_t counted = 0;
  auto for_each = [&](const auto& visit) { ledger.for_each_held(visit); };
  for (const Level& level : build_histogram(for_each)) counted += level.usage.count;
  if (counted != entries) abort();
  Maps maps = log.maps(snapshot);
  for (const Mapping& mapping : maps.all()) {
    if (maps.find(static_cast<uint32_t>(mapping.start)) == nullptr) abort();
  }
  snapshot_point(snapshot, log.statistics(snapshot), &held);
  if (log.kind() == LogKind::kRecords) pass.timeline();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  MemoryFile file(bytes, size);
  try {
    for (std::optional<LogKind> kind : {std::optional<LogKind>(), std::optional(LogKind::kRecords)}) {
      Log log(file.path(), kind);
      for (const Snapshot& snapshot : log.snapshots()) answer(log, snapshot);
    }
  } catch (const LogError&) {
  }
  return 0;
}
