// SPDX-License-Identifier: Apache-2.0
// Any bytes as an events file: the events are the same however the bytes are cut, and every value can be asked for.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "events/event_reader.h"
#include "story/processes/processes.h"

namespace {

using namespace quarl::events;
using quarl::story::Processes;

// Each kind of value of each key, so that all readings run; what they say in all.
size_t ask(const Fields& fields) {
  size_t sum = 0;
  for (const char* key : {"kind", "path", "at", "size", "trace", "pc", "distance", "bytes", "found", "stops", "near"}) {
    sum += fields.text(key).size() + fields.number(key).value_or(0) + fields.address(key).value_or(0);
    sum +=
        static_cast<size_t>(fields.distance(key).value_or(0)) + (fields.flag(key) ? 1 : 0) + fields.bytes(key).size();
    sum += fields.trace(key).size() + (fields.frame(key) ? 1 : 0);
    if (auto inner = fields.object(key)) sum += inner->text("relation").size();
    for (const Fields& inner : fields.objects(key)) sum += inner.bytes("found").size();
  }
  return sum;
}

struct Reading {
  std::vector<std::string> kinds;
  std::vector<size_t> sums;
  uint64_t bad = 0, first = 0;
  bool operator==(const Reading&) const = default;
};

Reading read(std::string_view bytes, size_t step) {
  Reading reading;
  EventReader reader;
  Processes processes;
  auto take = [&](const Event& event) {
    reading.kinds.push_back(event.kind());
    reading.sums.push_back(ask(event.fields()));
    if (processes.take(event).pid != event.pid()) std::abort();
  };
  for (size_t at = 0; at < bytes.size(); at += step) reader.feed(bytes.substr(at, step), take);
  reading.bad = reader.bad_lines();
  reading.first = reader.first_bad_line();
  return reading;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Reading whole = read(bytes, size + 1);
  if (!(whole == read(bytes, 1)) || !(whole == read(bytes, 7))) std::abort();
  if ((whole.bad == 0) != (whole.first == 0)) std::abort();
  return 0;
}
