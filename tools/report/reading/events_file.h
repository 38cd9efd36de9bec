// The lines of a file of events (docs/events.md) that one process wrote.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace quarl::report {

// Visits the process's events in their order. Lines that make no sense are passed over, and so is a file that cannot be
// read.
void for_each_event(const std::string& path, uint32_t pid, const std::function<void(const nlohmann::json&)>& visit);

// Empty when the event has no such text.
std::string text_of(const nlohmann::json& event, const char* key);

}  // namespace quarl::report
