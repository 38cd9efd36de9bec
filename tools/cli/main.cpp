// SPDX-License-Identifier: Apache-2.0
#include "verbs/app.h"

int main(int argc, char** argv) {
  return quarl::run_command_line(argc, argv);
}
