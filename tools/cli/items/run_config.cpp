// SPDX-License-Identifier: Apache-2.0
#include "items/run_config.h"

#include <algorithm>

#include "config/line.h"
#include "items/config_check.h"
#include "items/item_order.h"
#include "message.h"
#include "refusal.h"

namespace quarl {
namespace {

const Assignment* find_assignment(const std::vector<Assignment>& items, std::string_view key) {
  for (const Assignment& item : items) {
    if (key == item.item->key) return &item;
  }
  return nullptr;
}

std::vector<Assignment> last_of_each(const std::vector<Assignment>& items) {
  std::vector<Assignment> last;
  for (auto item = items.rbegin(); item != items.rend(); ++item) {
    if (!find_assignment(last, item->item->key)) last.push_back(*item);
  }
  std::reverse(last.begin(), last.end());
  return last;
}

struct ComposedFile {
  std::string text;
  std::vector<int> origin;  // by line: the line of the file on which it stands, 0 for one from the command line

  void add(const std::string& line, int from) {
    text += line + "\n";
    origin.push_back(from);
  }
};

// Masters that an item needs but nothing sets: their default would be applied only after the whole file.
std::vector<Assignment> with_needed_masters(std::vector<Assignment> items, const ItemState& file) {
  if (std::none_of(items.begin(), items.end(), [](auto& item) { return is_follower(item.item->key); })) return items;
  for (const char* key : {"QUARL_ALL", "QUARL_MEM_HEAD", "QUARL_PROF"}) {
    bool by_file = file.find(key) && file.find(key)->line > 0;
    if (!by_file && !find_assignment(items, key)) items.push_back(parse_assignment(std::string(key) + "=1"));
  }
  return items;
}

void sort_by_rank(std::vector<Assignment>& items) {
  std::stable_sort(items.begin(), items.end(), [](const Assignment& a, const Assignment& b) {
    return item_rank(a.item->key) < item_rank(b.item->key);
  });
}

void add_file_lines(ComposedFile& composed, std::string_view bytes, const std::vector<Assignment>& items) {
  for (const ConfigLine& line : read_config(bytes)) {
    if (!line.ended) continue;
    Line parsed = parse_line(line.text.c_str());
    bool replaced = parsed.error == LineError::kNone && find_assignment(items, parsed.key);
    if (!replaced) composed.add(line.text, line.number);
  }
}

void judge(const ComposedFile& composed, const std::string& file_name) {
  std::string refused;
  for (const Finding& finding : ConfigReport(composed.text).findings) {
    int line = finding.line > 0 ? composed.origin[finding.line - 1] : 0;
    if (line > 0) {
      say("{}:{}: {}", file_name, line, finding.text);
    } else {
      refused += (refused.empty() ? "" : "; ") + finding.text;
    }
  }
  if (!refused.empty()) refuse("{}", refused);
}

}  // namespace

std::string compose_config(std::string_view file_bytes, const std::string& file_name,
                           const std::vector<Assignment>& items) {
  std::vector<Assignment> ordered = with_needed_masters(last_of_each(items), ConfigReport(file_bytes).state);
  sort_by_rank(ordered);
  ComposedFile composed;
  for (const Assignment& item : ordered) {
    if (is_master(item.item->key)) composed.add(item.text(), 0);
  }
  add_file_lines(composed, file_bytes, ordered);
  for (const Assignment& item : ordered) {
    if (!is_master(item.item->key)) composed.add(item.text(), 0);
  }
  judge(composed, file_name);
  return composed.text;
}

void warn_of_config(std::string_view file_bytes, const std::string& file_name) {
  for (const Finding& finding : ConfigReport(file_bytes).findings) {
    say("{}:{}: {}", file_name, finding.line, finding.text);
  }
}

}  // namespace quarl
