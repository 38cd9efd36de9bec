// SPDX-License-Identifier: Apache-2.0
#include "report/symbols/address_sample.h"

#include <algorithm>

#include "report/reading/record_stream.h"

namespace quarl::report {
namespace {

constexpr uint64_t kPlaces = 8;
constexpr uint64_t kRecords = 32;  // at each place

}  // namespace

std::vector<uint32_t> sample_addresses(const Log& log, const Snapshot& snapshot) {
  std::vector<uint32_t> addresses;
  auto take = [&](uint64_t from, uint64_t count) {
    RecordStream stream(log, snapshot.header.records_offset + from * sizeof(OpRecord), count);
    for (auto batch = stream.next(); !batch.empty(); batch = stream.next()) {
      for (const OpRecord& record : batch) {
        addresses.insert(addresses.end(), record.trace, record.trace + record.stack_depth);
      }
    }
  };
  if (snapshot.records <= kPlaces * kRecords) {
    take(0, snapshot.records);
  } else {
    for (uint64_t place = 0; place < kPlaces; ++place) {
      take(place * (snapshot.records - kRecords) / (kPlaces - 1), kRecords);
    }
  }
  std::sort(addresses.begin(), addresses.end());
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  return addresses;
}

}  // namespace quarl::report
