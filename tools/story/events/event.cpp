#include "story/events/event.h"

namespace quarl::story {
namespace {

constexpr uint64_t kVersion = 1;
constexpr uint64_t kLargestTask = 1 << 22;  // PID_MAX_LIMIT of the kernel

std::optional<pid_t> task(const Fields& fields, const char* key) {
  auto number = fields.number(key);
  if (!number || *number == 0 || *number > kLargestTask) return std::nullopt;
  return static_cast<pid_t>(*number);
}

}  // namespace

std::optional<Event> Event::parse(std::string_view line) {
  Event event;
  event.object_ = Json::parse(line.begin(), line.end(), nullptr, false);
  if (!event.object_.is_object()) return std::nullopt;
  Fields fields = event.fields();
  auto pid = task(fields, "pid");
  event.kind_ = fields.text("event");
  if (!pid || event.kind_.empty() || fields.number("v") != kVersion) return std::nullopt;
  event.pid_ = *pid;
  event.tid_ = task(fields, "tid").value_or(*pid);
  return event;
}

}  // namespace quarl::story
