// SPDX-License-Identifier: Apache-2.0
// The values of one JSON object of an events file. A key that is missing, or has another type than the interface says,
// has no value.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace quarl::events {

using Json = nlohmann::json;

// A return address of a process.
struct TraceFrame {
  std::optional<uint64_t> module;  // its id; none for an address in no module
  uint64_t offset = 0;             // address of the ELF file, or the address itself
};
using Trace = std::vector<TraceFrame>;  // innermost first

using Bytes = std::vector<uint8_t>;

class Fields {
 public:
  explicit Fields(const Json& object) : object_(object) {}

  std::string text(const char* key) const;  // "" when there is none
  std::optional<uint64_t> number(const char* key) const;
  std::optional<double> time(const char* key) const;  // seconds since 1970, not negative
  std::optional<uint32_t> address(const char* key) const;
  std::optional<int64_t> distance(const char* key) const;  // may be negative
  bool flag(const char* key) const;
  Bytes bytes(const char* key) const;
  Trace trace(const char* key) const;
  std::optional<TraceFrame> frame(const char* key) const;
  std::optional<Fields> object(const char* key) const;
  std::vector<Fields> objects(const char* key) const;  // of an array, those elements that are objects

 private:
  const Json* find(const char* key) const;

  const Json& object_;
};

}  // namespace quarl::events
