// Opening a library with RTLD_DEEPBIND would bind its calls to the C library's malloc and free, past the checker's: it
// would hand our blocks to an allocator that has never given them out. The flag is cleared where blocks are ours. A
// namespace of its own (dlmopen) has its own C library, whose blocks are never ours; nothing is changed there.
#include <dlfcn.h>

#include <cstdint>

#include "platform/glibc/allocators.h"
#include "platform/glibc/loaded_symbols.h"

namespace quarl::glibc {
namespace {

// Before 2.34 the function lies in libdl, which is loaded where anybody calls it; a caller that only asks whether it is
// there may find ours alone.
void* nothing_opens() {
  return nullptr;
}

// For the entries in assembly: the address in the first register of a result, the flags that may pass in the second.
uint64_t way_to(const char* name) {
  find_allocators();
  void* next = next_function(name);
  if (next == nullptr) next = reinterpret_cast<void*>(nothing_opens);
  const auto passing = static_cast<uint32_t>(bypassed.everything ? ~0 : ~RTLD_DEEPBIND);
  return uint64_t{passing} << 32 | reinterpret_cast<uintptr_t>(next);
}

}  // namespace
}  // namespace quarl::glibc

extern "C" {

[[gnu::visibility("hidden")]] uint64_t quarl_way_to_dlopen() {
  return quarl::glibc::way_to("dlopen");
}
[[gnu::visibility("hidden")]] uint64_t quarl_way_to_dlmopen() {
  return quarl::glibc::way_to("dlmopen");
}

}  // extern "C"
