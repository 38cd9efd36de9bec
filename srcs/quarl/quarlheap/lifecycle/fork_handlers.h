// SPDX-License-Identifier: Apache-2.0
// fork: the lock is held while the process is copied, so that the child finds everything whole; the child goes on
// checking without its parent's files, timer and agent.
#pragma once

namespace quarl {

void register_fork_handlers();

}  // namespace quarl
