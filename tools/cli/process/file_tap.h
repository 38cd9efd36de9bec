// Reads along in the regular file that standard output is.
#pragma once

#include <sys/types.h>

#include "process/output_tap.h"
#include "process/report_scanner.h"

namespace quarl {

class FileTap : public OutputTap {
 public:
  static std::unique_ptr<FileTap> open();  // null when the file cannot be read
  ~FileTap() override;

  void look() override;
  void finish() override { look(); }
  int faults() const override { return scanner_.faults(); }
  int agent_port() const override { return scanner_.agent_port(); }

 private:
  FileTap(int file, off_t position) : file_(file), position_(position) {}

  int file_;
  off_t position_;  // up to which the file has been read
  ReportScanner scanner_;
};

}  // namespace quarl
