// SPDX-License-Identifier: Apache-2.0
// What a line from the agent's client does: it is applied; then, by the items in force, the heap is checked, and the
// statistics are printed and cleared.
#pragma once

namespace quarl {

// On the agent's thread. A line that names no item does nothing but tell so.
void take_agent_line(const char* line);

}  // namespace quarl
