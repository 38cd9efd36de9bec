// SPDX-License-Identifier: Apache-2.0
// The texts of all stories: one function for each kind of event that has one.
#pragma once

#include "story/telling/page.h"

namespace quarl::story {

Page fault_page(const Process& process, const Event& event, PlaceFinder& places);
Page crash_page(const Process& process, const Event& event, PlaceFinder& places);
Page limit_page(const Process& process, const Event& event, PlaceFinder& places);
Page trouble_page(const Process& process, const Event& event);

// A signal that a fault of the program raises, rather than somebody who wants it to end.
bool is_crash(int signal);

}  // namespace quarl::story
