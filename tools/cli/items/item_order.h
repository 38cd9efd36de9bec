// SPDX-License-Identifier: Apache-2.0
// The order in which items have to be set so that each finds what it looks at.
#pragma once

#include <string_view>

namespace quarl {

// Others look at these in the moment in which they are set.
inline constexpr std::string_view kMasters[] = {"QUARL_ALL", "QUARL_MEM_HEAD", "QUARL_PROF", "QUARL_HEAD_TIME",
                                                "QUARL_TIMER_SIG"};
// These look at the masters.
inline constexpr std::string_view kFollowers[] = {"QUARL_TIME_INTERVAL", "QUARL_SNAP_INTERVAL", "QUARL_THREAD",
                                                  "QUARL_MMAP"};

bool is_master(std::string_view key);
bool is_follower(std::string_view key);

// Masters first, then followers, then all others alike.
int item_rank(std::string_view key);

}  // namespace quarl
