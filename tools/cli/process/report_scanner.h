// Finds the checker's messages in what a program prints.
#pragma once

#include <string>
#include <string_view>

namespace quarl {

class ReportScanner {
 public:
  // The output piece by piece, cut anywhere.
  void feed(std::string_view piece);

  int faults() const { return faults_; }          // fault reports so far
  int agent_port() const { return agent_port_; }  // the last one that the agent announced; 0 before

 private:
  void count_faults(const std::string& text);
  void find_port(const std::string& text);

  std::string tail_;  // end of the text so far, shorter than any whole message
  int faults_ = 0;
  int agent_port_ = 0;
};

}  // namespace quarl
