// SPDX-License-Identifier: Apache-2.0
// The identity of this shared object, by which the C library keeps its fork handlers: start files define it, and the
// library is linked without them.
extern "C" {
__attribute__((visibility("hidden"))) void* __dso_handle = &__dso_handle;
}
