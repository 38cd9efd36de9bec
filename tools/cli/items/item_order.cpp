// SPDX-License-Identifier: Apache-2.0
#include "items/item_order.h"

#include <algorithm>
#include <iterator>

namespace quarl {
namespace {

template <size_t N>
int place(const std::string_view (&keys)[N], std::string_view key) {
  return static_cast<int>(std::find(std::begin(keys), std::end(keys), key) - std::begin(keys));
}

constexpr int kMasterCount = std::size(kMasters), kFollowerCount = std::size(kFollowers);

}  // namespace

bool is_master(std::string_view key) {
  return place(kMasters, key) < kMasterCount;
}

bool is_follower(std::string_view key) {
  return place(kFollowers, key) < kFollowerCount;
}

int item_rank(std::string_view key) {
  return is_master(key) ? place(kMasters, key) : kMasterCount + place(kFollowers, key);
}

}  // namespace quarl
