// SPDX-License-Identifier: Apache-2.0
// Further threads of a driver, each with a request channel of its own; numbered from 1. One that is ended announces it
// in its cleanup handler.
#pragma once

// Starts a worker and returns its kernel task id once it is ready, 0 when it could not be started.
int spawn_worker(void);

// Hands a command line to a worker, which answers it itself.
void pass_to_worker(int worker, const char* line);

// Asks for a worker's cancellation.
int cancel_worker(int worker);
