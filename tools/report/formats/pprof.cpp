// SPDX-License-Identifier: Apache-2.0
#include "report/formats/pprof.h"

#include <algorithm>
#include <map>
#include <protozero/pbf_writer.hpp>
#include <tuple>

#include "report/formats/gzip.h"

namespace quarl::report {
namespace {

// Field numbers of profile.proto.
namespace profile {
enum : uint32_t {
  kSampleType = 1,
  kSample = 2,
  kMapping = 3,
  kLocation = 4,
  kFunction = 5,
  kStringTable = 6,
  kTimeNanos = 9,
  kDefaultSampleType = 14
};
}
namespace value_type {
enum : uint32_t { kType = 1, kUnit = 2 };
}
namespace sample {
enum : uint32_t { kLocationId = 1, kValue = 2, kLabel = 3 };
}
namespace label {
enum : uint32_t { kKey = 1, kNumber = 3 };
}
namespace mapping {
enum : uint32_t {
  kId = 1,
  kMemoryStart = 2,
  kMemoryLimit = 3,
  kFileOffset = 4,
  kFilename = 5,
  kBuildId = 6,
  kHasFunctions = 7,
  kHasFilenames = 8,
  kHasLineNumbers = 9,
  kHasInlineFrames = 10
};
}
namespace location {
enum : uint32_t { kId = 1, kMappingId = 2, kAddress = 3, kLine = 4 };
}
namespace line {
enum : uint32_t { kFunctionId = 1, kLine = 2 };
}
namespace function {
enum : uint32_t { kId = 1, kName = 2, kSystemName = 3, kFilename = 4 };
}

class Writer {
 public:
  explicit Writer(Subject& subject) : subject_(subject), writer_(bytes_) { string(""); }

  std::string write() {
    allocations_ = subject_.log().kind() == LogKind::kRecords;
    const ProfileSamples samples = subject_.profile();
    if (allocations_) {
      add_type("alloc_objects", "count");
      add_type("alloc_space", "bytes");
    }
    add_type("inuse_objects", "count");
    add_type("inuse_space", "bytes");
    add_mappings();
    add_samples(samples);
    writer_.add_int64(profile::kTimeNanos, int64_t{subject_.snapshot().header.time} * 1'000'000'000);
    writer_.add_int64(profile::kDefaultSampleType, string("inuse_space"));
    for (const std::string& text : strings_) writer_.add_string(profile::kStringTable, text);
    return gzip(bytes_);
  }

 private:
  int64_t string(const std::string& text) {
    auto [position, added] = string_ids_.try_emplace(text, static_cast<int64_t>(strings_.size()));
    if (added) strings_.push_back(text);
    return position->second;
  }

  void add_type(const char* type, const char* unit) {
    protozero::pbf_writer message(writer_, profile::kSampleType);
    message.add_int64(value_type::kType, string(type));
    message.add_int64(value_type::kUnit, string(unit));
  }

  void add_mappings() {
    for (const Mapping& mapping : subject_.symbolizer().maps().all()) {
      if (!is_file(mapping) || !mapping.executable) continue;
      mappings_.push_back(mapping);
      protozero::pbf_writer message(writer_, profile::kMapping);
      message.add_uint64(mapping::kId, mappings_.size());
      message.add_uint64(mapping::kMemoryStart, mapping.start);
      message.add_uint64(mapping::kMemoryLimit, mapping.end);
      message.add_uint64(mapping::kFileOffset, mapping.offset);
      message.add_int64(mapping::kFilename, string(mapping.path));
      message.add_int64(mapping::kBuildId, string(subject_.symbolizer().build_id(mapping.path)));
      for (uint32_t field :
           {mapping::kHasFunctions, mapping::kHasFilenames, mapping::kHasLineNumbers, mapping::kHasInlineFrames}) {
        message.add_bool(field, true);
      }
    }
  }

  uint64_t mapping_of(uint32_t address) const {
    auto holds = [&](const Mapping& mapping) { return address >= mapping.start && address < mapping.end; };
    auto found = std::find_if(mappings_.begin(), mappings_.end(), holds);
    return found == mappings_.end() ? 0 : static_cast<uint64_t>(found - mappings_.begin()) + 1;
  }

  uint64_t function(const Frame& frame) {
    std::string name = name_of(frame);
    auto [position, added] = functions_.try_emplace({name, frame.file}, functions_.size() + 1);
    if (added) {
      int64_t name_id = string(name);
      int64_t file_id = string(frame.file);
      protozero::pbf_writer message(writer_, profile::kFunction);
      message.add_uint64(function::kId, position->second);
      message.add_int64(function::kName, name_id);
      message.add_int64(function::kSystemName, name_id);
      message.add_int64(function::kFilename, file_id);
    }
    return position->second;
  }

  // One location holds a call with everything that is inlined there, innermost first.
  uint64_t location(Frames::const_iterator first, Frames::const_iterator end) {
    std::vector<std::pair<uint64_t, int64_t>> lines;
    for (auto frame = first; frame != end; ++frame) lines.emplace_back(function(*frame), frame->line);
    auto [position, added] = locations_.try_emplace({first->address, lines}, locations_.size() + 1);
    if (!added) return position->second;
    protozero::pbf_writer message(writer_, profile::kLocation);
    message.add_uint64(location::kId, position->second);
    message.add_uint64(location::kMappingId, mapping_of(first->address));
    message.add_uint64(location::kAddress, first->address);
    for (auto [id, number] : lines) {
      protozero::pbf_writer line(message, location::kLine);
      line.add_uint64(line::kFunctionId, id);
      line.add_int64(line::kLine, number);
    }
    return position->second;
  }

  std::vector<uint64_t> locations(const Frames& frames) {
    std::vector<uint64_t> ids;
    for (auto first = frames.begin(); first != frames.end();) {
      auto last = std::find_if(first, frames.end(), [](const Frame& frame) { return !frame.inlined; });
      auto end = last == frames.end() ? last : last + 1;
      ids.push_back(location(first, end));
      first = end;
    }
    return ids;
  }

  // Traces that look alike on the desk become one sample.
  void add_samples(const ProfileSamples& samples) {
    std::map<std::pair<std::vector<uint64_t>, uint32_t>, ProfileSample> merged;
    for (const auto& [key, sums] : samples) {
      const Frames frames = subject_.symbolizer().trace(subject_.ledger().traces().addresses(key.first));
      ProfileSample& sample = merged[{locations(frames), key.second}];
      sample.in_use += sums.in_use;
      sample.allocated += sums.allocated;
    }
    for (const auto& [key, sums] : merged) add_sample(key.first, key.second, sums);
  }

  void add_sample(const std::vector<uint64_t>& ids, uint32_t tid, const ProfileSample& sums) {
    std::vector<int64_t> values;
    auto add = [&](const Usage& usage) {
      values.push_back(static_cast<int64_t>(usage.count));
      values.push_back(static_cast<int64_t>(usage.bytes));
    };
    if (allocations_) add(sums.allocated);
    add(sums.in_use);
    const int64_t thread = string("thread");
    protozero::pbf_writer message(writer_, profile::kSample);
    message.add_packed_uint64(sample::kLocationId, ids.begin(), ids.end());
    message.add_packed_int64(sample::kValue, values.begin(), values.end());
    if (tid == 0) return;
    protozero::pbf_writer label(message, sample::kLabel);
    label.add_int64(label::kKey, thread);
    label.add_int64(label::kNumber, tid);
  }

  Subject& subject_;
  bool allocations_ = false;  // told besides what is in use
  std::string bytes_;
  protozero::pbf_writer writer_;
  std::vector<std::string> strings_;
  std::map<std::string, int64_t> string_ids_;
  std::vector<Mapping> mappings_;
  std::map<std::pair<std::string, std::string>, uint64_t> functions_;
  std::map<std::pair<uint32_t, std::vector<std::pair<uint64_t, int64_t>>>, uint64_t> locations_;
};

}  // namespace

std::string pprof_of(Subject& subject) {
  return Writer(subject).write();
}

}  // namespace quarl::report
