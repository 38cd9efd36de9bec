#include "process/report_scanner.h"

#include <gtest/gtest.h>

namespace quarl {
namespace {

// Output comes in pieces cut anywhere; what is found must not depend on the cuts.
TEST(ReportScanner, FindsEachMessageOnceHoweverTheOutputIsCut) {
  const std::string fault = "double free a same memory block whose address is : 0x1234\n";
  const std::string tail = "###### slop over occurs at tail of a memory block whose detail info is as follows:\n";
  const std::string head = "######  slop over occurs at front of a memory block whose detail info is as follows:\n";
  const std::string output = "a line without end" + fault + fault + "###### slop over\n" + tail + head +
                             "Waiting for connect at port [ 9000 ]\nWaiting for connect at port [ 40123 ]\n" +
                             std::string(300, '#') + tail;
  for (size_t size = 1; size <= output.size(); ++size) {
    ReportScanner scanner;
    for (size_t at = 0; at < output.size(); at += size) scanner.feed(output.substr(at, size));
    ASSERT_EQ(scanner.faults(), 5) << "in pieces of " << size;
    ASSERT_EQ(scanner.agent_port(), 40123) << "in pieces of " << size;
  }
}

}  // namespace
}  // namespace quarl
