#include "platform/thread_cache.h"

constinit thread_local quarl::ThreadCache quarl_thread_cache{};
