// SPDX-License-Identifier: Apache-2.0
// What a driver can be told to do.
#pragma once

#include "channel.h"

enum { kHandlerWorker = 900, kExitWorker = 901 };  // as which a signal handler and an exit handler answer

// Runs one command line and answers for its last command. Commands are separated by ";"; "repeat N" and "fork" take the
// rest of the line, the latter into a child that then exits with 0; "handle SIGNAL" and "at_exit" keep the rest for the
// handler that they install.
struct Answer run_commands(char* line);
