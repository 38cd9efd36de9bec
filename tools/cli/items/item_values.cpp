// SPDX-License-Identifier: Apache-2.0
#include "items/item_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <vector>

#include "config/line.h"
#include "items/signal_text.h"

namespace quarl {
namespace {

bool is_number(std::string_view value) {
  return std::all_of(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c); });
}

template <typename Read>
std::string read_as(const std::string& value, const Read& read, std::string_view advice) {
  return fmt::format("\"{}\" is read as {}; write {}", value, read, advice);
}

// Switches and levels, which look at the first character.
std::string level_complaint(const ItemRow& row, const std::string& value) {
  const char last = static_cast<char>('0' + row.range.last);
  const char read = value[0] >= '1' && value[0] <= last ? value[0] : '0';
  if (value == std::string(1, read)) return "";
  return read_as(value, read, last == '1' ? "0 or 1" : "0, 1 or 2");
}

std::string digits_complaint(const std::string& value) {
  constexpr size_t kMaxDigits = 9;  // of kMaxNumber
  if (is_number(value) && value.size() <= kMaxDigits) return "";
  return read_as(value, leading_number(value.c_str()), fmt::format("a whole number below {}", kMaxNumber + 1));
}

// What becomes of a number out of the range.
std::string range_complaint(const ItemRow& row, const std::string& value, bool below) {
  const std::string_view key = row.key;
  if (key == "QUARL_HEAD_STACKDEPTH") {
    return fmt::format("{} turns the call traces off; write 2 to {}, 1 for {}, or 0 for none", value, row.range.last,
                       row.default_value);
  }
  if (key == "QUARL_MAPS_SIZE") {
    if (!below) return fmt::format("{} KiB does not fit a 32-bit process; write at most {}", value, row.range.last);
    return fmt::format("{} leaves the size at {} KiB; write a number of KiB from {} on, or 1 for {}", value,
                       row.default_value, row.range.first, row.default_value);
  }
  if (key == "QUARL_TRACE_BUFSIZE") {
    if (!below) {
      return fmt::format("a buffer holds at most {} records; write at most {}", kMaxRecords, kMaxRecords * kRecordSize);
    }
    return fmt::format("{} is below one record of {} bytes and read as {}", value, kRecordSize, row.default_value);
  }
  return fmt::format("{} is out of range; write {} to {}", value, row.range.first, row.range.last);
}

std::string number_complaint(const ItemRow& row, const std::string& value) {
  if (std::string text = digits_complaint(value); !text.empty()) return text;
  if (row.set == set_trace_bufsize && (value[0] == '0' || value[0] == '1')) {
    return fmt::format("a value that begins with {} is read as {}; write a size that begins with 2 to 9", value[0],
                       row.default_value);
  }
  const auto number = static_cast<uint32_t>(leading_number(value.c_str()));
  const bool stands_for_default = row.default_on && number == 1;
  if (stands_for_default || (number >= row.range.first && number <= row.range.last)) return "";
  return range_complaint(row, value, number < row.range.first);
}

std::string unusable_signal(int number) {
  if (number == 9 || number == 19)
    return fmt::format("{} cannot be handled; choose another signal", signal_name(number));
  if (number == 32 || number == 33)
    return fmt::format("signal {} belongs to the C library; choose another one", number);
  if (number == kReleaseSignal) return "signal 60 is the one that ends a parked thread; choose another one";
  if (number < 1 || number > static_cast<int>(kLastSignal)) {
    return fmt::format("there is no signal {}; choose one of 1 to {}", number, kLastSignal);
  }
  return "";
}

std::string signal_complaint(const ItemRow& row, const std::string& value) {
  const int number = signal_number(value);
  if (number == 0) return read_as(value, row.default_value, "the name or the number (2 or more) of a signal");
  if (std::isdigit(static_cast<unsigned char>(value[0])) && !is_number(value)) return digits_complaint(value);
  return unusable_signal(number);
}

std::string signal_number_complaint(const std::string& value) {
  const std::string text = digits_complaint(value);
  if (text.empty()) return unusable_signal(leading_number(value.c_str()));
  if (is_number(value)) return text;  // a long one
  const int number = signal_number(value);
  return number > 1 ? fmt::format("a number is needed, not a name: write {}", number) : text;
}

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

std::string unknown_key(std::string_view key) {
  constexpr size_t kNear = 3;  // typing errors
  const ItemRow* nearest = nullptr;
  size_t distance = kNear + 1;
  for (const ItemRow& item : kItemRows) {
    size_t length = std::string_view(item.key).size();
    if (std::max(length, key.size()) - std::min(length, key.size()) > kNear) continue;
    size_t edits = edit_distance(key, item.key);
    if (edits < distance) distance = edits, nearest = &item;
  }
  if (!nearest) return fmt::format("no item \"{}\"; \"quarl config\" lists them", key);
  return fmt::format("no item \"{}\"; did you mean {}?", key, nearest->key);
}

std::string value_complaint(const ItemRow& row, const std::string& value) {
  if (row.default_on && value == "1") return "";  // what the defaults apply
  switch (row.value) {
    case ItemValue::kSwitch:
    case ItemValue::kLevel:
      return level_complaint(row, value);
    case ItemValue::kNumber:
      return number_complaint(row, value);
    case ItemValue::kSignal:
      return signal_complaint(row, value);
    case ItemValue::kSignalNumber:
      return signal_number_complaint(value);
    case ItemValue::kText:
      break;
  }
  return "";
}

}  // namespace quarl
