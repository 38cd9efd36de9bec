// The last line: faults, and what was never given back.
#pragma once

#include "story/telling/teller.h"

namespace quarl::story {

// "1 fault, reported 3 times; 12 bytes in 1 block never given back". `main` is the process whose figures are told apart
// from those of the others; null when none was heard of.
std::string summary(const Teller& teller, const Process* main);

// Of the log that says most of that process, the arguments that read it: "report leaks PATH". `logs` are the paths of
// the logs that are there. Empty when there is none.
std::string next_question(const std::vector<std::string>& logs, pid_t main);

}  // namespace quarl::story
