#include "items/item_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <vector>

#include "items/signal_text.h"

namespace quarl {
namespace {

constexpr int kRecordSize = 280;
constexpr int kMaxRecords = 32767;  // what a record buffer can count
constexpr long kMaxMapsKib = 1024L * 1024;

using Complaint = std::string (*)(std::string_view value);

bool is_number(std::string_view value) {
  return !value.empty() && std::all_of(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c); });
}

std::string switch_complaint(std::string_view value) {
  if (value == "0" || value == "1") return "";
  return fmt::format("\"{}\" is read as {}; write 0 or 1", value, value.starts_with('1') ? "1" : "0");
}

std::string head_time_complaint(std::string_view value) {
  if (value == "0" || value == "1" || value == "2") return "";
  char first = value.starts_with('1') || value.starts_with('2') ? value[0] : '0';
  return fmt::format("\"{}\" is read as {}; write 0, 1 or 2", value, first);
}

std::string number_complaint(std::string_view value) {
  if (is_number(value) && value.size() < 10) return "";
  return fmt::format("\"{}\" is read as {}; write a whole number below 1000000000", value, leading_number(value));
}

std::string depth_complaint(std::string_view value) {
  if (std::string text = number_complaint(value); !text.empty()) return text;
  if (leading_number(value) <= 64) return "";
  return fmt::format("{} turns the call traces off; write 2 to 64, 1 for 8, or 0 for none", value);
}

std::string maps_complaint(std::string_view value) {
  if (std::string text = number_complaint(value); !text.empty()) return text;
  if (value == "0") return "0 leaves the size at 32 KiB; write a number of KiB from 2 on, or 1 for 32";
  if (leading_number(value) <= kMaxMapsKib) return "";
  return fmt::format("{} KiB does not fit a 32-bit process; write at most {}", value, kMaxMapsKib);
}

std::string buffer_complaint(std::string_view value) {
  if (value == "1") return "";
  if (std::string text = number_complaint(value); !text.empty()) return text;
  long bytes = leading_number(value);
  if (value[0] == '0' || value[0] == '1') {
    return fmt::format("a value that begins with {} is read as 28000; write a size that begins with 2 to 9", value[0]);
  }
  if (bytes < kRecordSize)
    return fmt::format("{} is below one record of {} bytes and read as 28000", bytes, kRecordSize);
  if (bytes / kRecordSize > kMaxRecords) {
    return fmt::format("a buffer holds at most {} records; write at most {}", kMaxRecords, kMaxRecords * kRecordSize);
  }
  return "";
}

std::string unusable_signal(int number) {
  if (number == 9 || number == 19)
    return fmt::format("{} cannot be handled; choose another signal", signal_name(number));
  if (number == 32 || number == 33)
    return fmt::format("signal {} belongs to the C library; choose another one", number);
  if (number == kReleaseSignal) return "signal 60 is the one that ends a parked thread; choose another one";
  if (number < 1 || number > kLastSignal) {
    return fmt::format("there is no signal {}; choose one of 1 to {}", number, kLastSignal);
  }
  return "";
}

std::string signal_complaint(std::string_view value, int default_signal) {
  if (value == "1") return "";  // what the defaults apply
  int number = signal_number(value);
  if (number == 0 || number == 1) {
    return fmt::format("\"{}\" is read as {}; write the name or the number (2 or more) of a signal", value,
                       signal_name(default_signal));
  }
  if (std::isdigit(static_cast<unsigned char>(value[0])) && !is_number(value)) return number_complaint(value);
  return unusable_signal(number);
}

std::string dump_signal_complaint(std::string_view value) {
  return signal_complaint(value, kDumpSignal);
}
std::string timer_signal_complaint(std::string_view value) {
  return signal_complaint(value, kTimerSignal);
}

std::string user_signal_complaint(std::string_view value) {
  if (std::string text = number_complaint(value); !text.empty()) {
    int number = signal_number(value);
    return number > 1 ? fmt::format("a number is needed, not a name: write {}", number) : text;
  }
  return unusable_signal(static_cast<int>(leading_number(value)));
}

std::string no_complaint(std::string_view) {
  return "";
}

struct Rule {
  std::string_view key;
  Complaint complaint;
};

// Items that are no plain switches.
constexpr Rule kRules[] = {
    {"QUARL_LOG_FILENAME", no_complaint},       {"QUARL_SIG", dump_signal_complaint},
    {"QUARL_HEAD_TIME", head_time_complaint},   {"QUARL_TIMER_SIG", timer_signal_complaint},
    {"QUARL_TIME_INTERVAL", number_complaint},  {"QUARL_SNAP_INTERVAL", number_complaint},
    {"QUARL_HEAD_STACKDEPTH", depth_complaint}, {"QUARL_MAPS_SIZE", maps_complaint},
    {"QUARL_TRACE_BUFSIZE", buffer_complaint},  {"QUARL_SLOPOVER_USER", user_signal_complaint},
};

size_t edit_distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t changed = diagonal + (std::toupper(static_cast<unsigned char>(a[i - 1])) != b[j - 1]);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
    }
  }
  return row.back();
}

}  // namespace

const ItemInfo* find_item(std::string_view key) {
  for (const ItemInfo& item : kItemTable) {
    if (key == item.key) return &item;
  }
  return nullptr;
}

std::string unknown_key(std::string_view key) {
  constexpr size_t kNear = 3;  // typing errors
  const ItemInfo* nearest = nullptr;
  size_t distance = kNear + 1;
  for (const ItemInfo& item : kItemTable) {
    size_t length = std::string_view(item.key).size();
    if (std::max(length, key.size()) - std::min(length, key.size()) > kNear) continue;
    size_t edits = edit_distance(key, item.key);
    if (edits < distance) distance = edits, nearest = &item;
  }
  if (!nearest) return fmt::format("no item \"{}\"; \"quarl config\" lists them", key);
  return fmt::format("no item \"{}\"; did you mean {}?", key, nearest->key);
}

std::string value_complaint(const ItemInfo& item, std::string_view value) {
  for (const Rule& rule : kRules) {
    if (rule.key == item.key) return rule.complaint(value);
  }
  return switch_complaint(value);
}

long leading_number(std::string_view value) {
  return std::strtol(std::string(value).c_str(), nullptr, 10);
}

}  // namespace quarl
