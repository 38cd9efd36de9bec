// SPDX-License-Identifier: Apache-2.0
#include "report/analysis/difference.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace quarl::report {
namespace {

Change change_between(const Usage& before, const Usage& after) {
  if (before.count == 0) return Change::kNew;
  if (after.count == 0) return Change::kGone;
  if (after.bytes != before.bytes) return after.bytes > before.bytes ? Change::kGrown : Change::kShrunk;
  return after.count > before.count ? Change::kGrown : Change::kShrunk;
}

}  // namespace

const char* name_of(Change change) {
  switch (change) {
    case Change::kNew:
      return "new";
    case Change::kGrown:
      return "grew";
    case Change::kShrunk:
      return "shrank";
    case Change::kGone:
      return "gone";
  }
  return "";
}

std::vector<SiteDifference> difference(const std::vector<Site>& before, const std::vector<Site>& after) {
  std::unordered_map<std::string_view, const Site*> earlier;
  for (const Site& site : before) earlier[site.key] = &site;
  std::vector<SiteDifference> changes;
  auto add = [&](const Site& site, const Usage& old, const Usage& now) {
    if (old.bytes != now.bytes || old.count != now.count) changes.push_back({change_between(old, now), site, old, now});
  };
  for (const Site& site : after) {
    auto found = earlier.find(site.key);
    add(site, found == earlier.end() ? Usage{} : found->second->usage, site.usage);
    if (found != earlier.end()) earlier.erase(found);
  }
  for (const Site& site : before) {
    if (earlier.contains(site.key)) add(site, site.usage, {});
  }
  std::stable_sort(changes.begin(), changes.end(),
                   [](const SiteDifference& a, const SiteDifference& b) { return a.bytes() > b.bytes(); });
  return changes;
}

}  // namespace quarl::report
