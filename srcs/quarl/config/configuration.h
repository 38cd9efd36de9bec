// SPDX-License-Identifier: Apache-2.0
// The sources of the library's configuration: lines of text, the configuration file, the defaults. The file is
// quarlcfg.ini in the current directory, or the path in QUARL_CFG_FILE.
#pragma once

#include "config/effect.h"
#include "state/hook_lock.h"

namespace quarl {

// Carries out what an item asks for beyond the settings; called right after each line or default that sets one, under
// the lock.
using EffectHandler = void (*)(const Effect& effect);

// Applies one line of text, from a file or a packet. 0 when it names an item, also when that may not be set again; -1
// with a message on standard error otherwise.
int apply_line(const char* text, EffectHandler carry_out) REQUIRES(hook_mutex);

// Applies the file's lines in order, then "1" to every default-on item that nothing has set. 0 when the file could be
// opened, whatever it holds; else -1 without a message, and nothing is applied.
int load_configuration(EffectHandler carry_out) REQUIRES(hook_mutex);

// The defaults of a process without a configuration file; QUARL_THREAD gets "0" as well.
void apply_defaults_without_file(EffectHandler carry_out) REQUIRES(hook_mutex);

}  // namespace quarl
