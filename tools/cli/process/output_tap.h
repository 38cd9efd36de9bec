// Reads along what a program prints on its standard output, to find the checker's messages there.
#pragma once

#include <memory>

namespace quarl {

class OutputTap {
 public:
  // By what descriptor 1 is:
  // - a regular file is passed through as it is and read on the side;
  // - a terminal is passed on through a pseudo-terminal, anything else through a pipe, and copied unchanged. Standard
  //   error goes the same way when it is the same file, so that the order of the two is kept.
  // `direct` passes the descriptor through in any case and reads nothing.
  static std::unique_ptr<OutputTap> open(bool direct);

  virtual ~OutputTap() = default;

  virtual void attach_child() {}  // in the program's process, before exec
  virtual void start() {}         // in the tool's process, once the program runs
  virtual void look() {}          // now and then
  virtual void resize() {}        // the terminal has another size
  // The program has ended: reads what it left behind. Processes that it left behind keep their output.
  virtual void finish() {}

  virtual int faults() const { return 0; }
  virtual int agent_port() const { return 0; }
};

}  // namespace quarl
