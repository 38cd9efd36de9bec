// SPDX-License-Identifier: Apache-2.0
// The moment before the program has a library unloaded, with its names and its code.
#pragma once

namespace quarl {

// Called by dlclose on the thread that calls it, whether anything goes or not; null: nobody wants to know. Set by the
// constructor.
using UnloadListener = void (*)();
inline constinit UnloadListener before_unloading = nullptr;

}  // namespace quarl
