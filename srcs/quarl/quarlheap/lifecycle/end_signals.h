// SPDX-License-Identifier: Apache-2.0
// QUARL_END_SIGNALS=1: the signals that end a process find the logs written and their story told, and end it then as
// they would have.
#pragma once

namespace quarl {

// Called once by the constructor on the main thread, before the program may ask what is installed.
void register_end_signals();

// The last step of the constructor: handlers where the default action is set.
void install_end_signals();

// The default actions again, before the program filters its system calls; and the handlers, when it could not.
void withdraw_end_signals();

}  // namespace quarl
