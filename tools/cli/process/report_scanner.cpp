#include "process/report_scanner.h"

#include <algorithm>
#include <cstdlib>

namespace quarl {
namespace {

constexpr std::string_view kFaultTexts[] = {
    "double free a same memory block whose address is : ",
    "######  slop over occurs at front of a memory block whose detail info is as follows:",
    "###### slop over occurs at tail of a memory block whose detail info is as follows:",
};
constexpr std::string_view kPortText = "Waiting for connect at port [ ";
constexpr std::string_view kPortEnd = " ]";
constexpr size_t kTailSize = 96;  // longer than any of the texts

}  // namespace

// A message counts in the piece that brings its last byte: one that lies in the tail alone was counted before.
void ReportScanner::feed(std::string_view piece) {
  std::string text = tail_ + std::string(piece);
  count_faults(text);
  find_port(text);
  tail_ = text.substr(text.size() - std::min(text.size(), kTailSize));
}

void ReportScanner::count_faults(const std::string& text) {
  for (std::string_view fault : kFaultTexts) {
    for (size_t at = text.find(fault); at != std::string::npos; at = text.find(fault, at + 1)) {
      if (at + fault.size() > tail_.size()) ++faults_;
    }
  }
}

void ReportScanner::find_port(const std::string& text) {
  size_t at = text.rfind(kPortText);
  if (at == std::string::npos) return;
  size_t digits = at + kPortText.size();
  if (text.find(kPortEnd, digits) == std::string::npos) return;
  agent_port_ = std::atoi(text.c_str() + digits);
}

}  // namespace quarl
