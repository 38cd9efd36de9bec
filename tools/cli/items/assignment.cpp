// SPDX-License-Identifier: Apache-2.0
#include "items/assignment.h"

#include <algorithm>
#include <cctype>

#include "config/line.h"
#include "items/item_values.h"
#include "refusal.h"

namespace quarl {

std::string Assignment::text() const {
  return std::string(item->key) + "=" + value;
}

Assignment parse_assignment(const std::string& text) {
  size_t equals = text.find('=');
  if (equals == std::string::npos) refuse("\"{}\" is no KEY=VALUE", text);
  std::string key = text.substr(0, equals), value = text.substr(equals + 1);
  if (key.size() > kMaxKey) refuse("the key \"{}\" is longer than {} characters", key, kMaxKey);
  const ItemRow* item = find_item(key.c_str());
  if (!item) refuse("{}", unknown_key(key));
  if (value.empty()) refuse("{}: a value is missing; it takes {}", key, item->values);
  if (value.size() > kMaxValue) refuse("{}: the value is longer than {} characters", key, kMaxValue);
  auto cuts = [](unsigned char c) { return c == '=' || c == '#' || std::isspace(c) || std::iscntrl(c); };
  if (std::any_of(value.begin(), value.end(), cuts)) refuse("{}: a value holds no blank, \"=\" or \"#\"", key);
  if (std::string complaint = value_complaint(*item, value); !complaint.empty()) refuse("{}: {}", key, complaint);
  return {item, value};
}

std::vector<Assignment> parse_assignments(const std::vector<std::string>& texts) {
  std::vector<Assignment> assignments;
  assignments.reserve(texts.size());
  for (const std::string& text : texts) assignments.push_back(parse_assignment(text));
  return assignments;
}

}  // namespace quarl
