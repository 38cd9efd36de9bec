// SPDX-License-Identifier: Apache-2.0
// The environment: the library's own variables (their names begin with QUARL_), and what tells how the C library
// behaves. Whatever reads one asks here.
#pragma once

namespace quarl {

// The process has rights that who started it may not have: a set-user-id program and its like. Neither the environment
// nor the current directory can be believed then.
bool has_borrowed_rights();

// The value that the variable has at this moment; null when it is not set, and always with borrowed rights.
const char* environment(const char* name);

}  // namespace quarl
