// SPDX-License-Identifier: Apache-2.0
// The last line: faults, and what was never given back.
#pragma once

#include "report/verbs/unfreed.h"
#include "story/telling/teller.h"

namespace quarl::story {

// "1 fault, reported 3 times; 12 bytes in 1 block never given back". `main` is the process whose figures are told apart
// from those of the others; null when none was heard of. `unfreed`: what the log of that process says, where it is to
// be asked; else the figures are those of the events, which count all heap blocks and no mapping.
std::string summary(const Teller& teller, const Process* main,
                    const std::optional<report::Unfreed>& unfreed = std::nullopt);

// Of `logs` the one that tells what that process held at last; empty when there is none.
std::string leak_log(const std::vector<std::string>& logs, pid_t main);
// Of the log that says most of that process, the arguments that read it: "report leaks PATH". `logs` are the paths of
// the logs that are there. Empty when there is none.
std::string next_question(const std::vector<std::string>& logs, pid_t main);

}  // namespace quarl::story
