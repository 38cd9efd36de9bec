// SPDX-License-Identifier: Apache-2.0
// A thread that releases a block twice, with objects on its stack and below a function that throws nothing.
#include <pthread.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "announce.h"

namespace {

pthread_mutex_t held = PTHREAD_MUTEX_INITIALIZER;
pthread_key_t key;

struct Frame {
  ~Frame() { announce("left", nullptr); }
};
struct Local {
  ~Local() { announce("local", this); }
  int used = 0;
};
thread_local Local local;

void release_twice() {
  Frame frame;
  void* volatile block = malloc(20);
  free(block);
  free(block);
}

void without_exceptions() noexcept {
  Frame frame;
  release_twice();
}

void* run(void*) {
  local.used = 1;
  pthread_setspecific(key, &key);
  pthread_mutex_lock(&held);
  announce("thread", reinterpret_cast<void*>(syscall(SYS_gettid)));
  pthread_cleanup_push([](void*) { announce("cleaned", nullptr); }, nullptr);
  without_exceptions();
  pthread_cleanup_pop(0);
  return nullptr;
}

}  // namespace

int main() {
  pthread_key_create(&key, [](void* value) { announce("specific", value); });
  pthread_t thread;
  if (pthread_create(&thread, nullptr, run, nullptr) != 0) return 1;
  if (pthread_join(thread, nullptr) != 0) return 2;
  announce("joined", &key);
  announce("held", reinterpret_cast<void*>(pthread_mutex_trylock(&held) != 0 ? 1L : 0L));
  return 0;
}
