// Any bytes as a log: reading, matching and summing up must end without a fault and with bounded memory.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "report/analysis/histogram.h"
#include "report/analysis/ledger_reader.h"
#include "report/analysis/thread_tally.h"
#include "report/analysis/timeline.h"
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
  LedgerResult result = read_ledger(log, snapshot);
  uint64_t bytes = 0, entries = 0;
  result.ledger->for_each_held([&](const LiveEntry& entry) {
    bytes += entry.size;
    ++entries;
  });
  const Held& held = result.ledger->held();
  if (bytes != held.bytes + held.file_bytes || entries != held.entries) abort();
  uint64_t counted = 0;
  for (const Level& level : build_histogram(*result.ledger)) counted += level.usage.count;
  if (counted != entries) abort();
  Maps maps = log.maps(snapshot);
  for (const Mapping& mapping : maps.all()) {
    if (maps.find(static_cast<uint32_t>(mapping.start)) == nullptr) abort();
  }
  tally_threads(log, snapshot);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  MemoryFile file(bytes, size);
  try {
    Log log(file.path());
    for (const Snapshot& snapshot : log.snapshots()) answer(log, snapshot);
    snapshot_timeline(log);
    record_timeline(log, log.snapshots().front());
  } catch (const LogError&) {
  }
  return 0;
}
