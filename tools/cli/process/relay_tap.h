// Passes standard output on through a pipe or a pseudo-terminal, byte for byte.
#pragma once

#include <atomic>
#include <thread>

#include "process/output_tap.h"
#include "process/report_scanner.h"

namespace quarl {

class RelayTap : public OutputTap {
 public:
  static std::unique_ptr<RelayTap> open(bool terminal);
  ~RelayTap() override;

  void attach_child() override;
  void start() override;
  void resize() override;
  void finish() override;
  int faults() const override { return faults_; }
  int agent_port() const override { return agent_port_; }

 private:
  RelayTap(int reader, int writer, bool terminal);
  void relay();                  // until the program's end is closed, or what is there after finish() is passed on
  bool pass_piece();             // false at the end
  bool wait_for_output() const;  // false when finish() was called and nothing is left

  int reader_;
  int writer_;  // the program's end; -1 once the program has it
  int stop_;    // readable once finish() was called
  bool terminal_;
  bool with_errors_;                 // standard error is the same file and goes the same way
  std::atomic<bool> ended_ = false;  // nobody holds the program's end any more
  std::atomic<int> faults_ = 0;
  std::atomic<int> agent_port_ = 0;
  ReportScanner scanner_;  // of the relaying thread
  std::thread thread_;
};

}  // namespace quarl
