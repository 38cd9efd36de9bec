// What a driver can be told to do.
#pragma once

#include "channel.h"

enum { kHandlerWorker = 900 };  // as which a signal handler answers

// Runs one command line and answers for its last command. Commands are separated by ";"; "repeat N" and "fork" take the
// rest of the line, the latter into a child that then exits with 0; "handle SIGNAL" keeps the rest for the handler that
// it installs.
struct Answer run_commands(char* line);
