// SPDX-License-Identifier: Apache-2.0
// fork: the checker's steps are the last before the process is copied and the first after it, whichever library asked
// for its own first, so that no handler of another library runs between them.
//
// The C library takes the lock of its list of streams behind the last handler. A thread that holds it may wait for one
// that allocates while it reads a line; so it is taken before the checker's own lock, which the other then gets.
#include <errno.h>

#include "platform/checked_programs.h"
#include "platform/glibc/glibc.h"
#include "platform/glibc/loaded_symbols.h"
#include "platform/glibc/program_break.h"

extern "C" {
void _IO_list_lock() __attribute__((weak));
void _IO_list_unlock() __attribute__((weak));
void _IO_list_resetlock() __attribute__((weak));
extern void* __dso_handle __attribute__((visibility("hidden")));
}

namespace quarl {
namespace {

using Handler = void (*)();
using Register = int (*)(Handler, Handler, Handler, void*);

constinit ForkSteps steps{};
constinit bool registered = false;
constinit bool streams_held = false;  // by the thread that forks, which writes it

constinit const char* single_threaded = nullptr;  // the C library's word, where it has one

bool other_threads() {
  return single_threaded == nullptr || *single_threaded == 0;
}

void before() {
  if (_IO_list_lock != nullptr && other_threads()) {
    _IO_list_lock();
    streams_held = true;
  }
  if (steps.before != nullptr) steps.before();
}

void after_in_parent() {
  if (steps.in_parent != nullptr) steps.in_parent();
  if (!streams_held) return;
  streams_held = false;
  _IO_list_unlock();
}

void after_in_child() {
  if (streams_held) _IO_list_resetlock();
  streams_held = false;
  glibc::reset_break_lock();
  if (steps.in_child != nullptr) steps.in_child();
}

Register next_register() {
  return reinterpret_cast<Register>(glibc::next_function("__register_atfork"));
}

void register_own() {
  if (__atomic_exchange_n(&registered, true, __ATOMIC_SEQ_CST)) return;
  if (const Register next = next_register()) next(before, after_in_parent, after_in_child, __dso_handle);
}

}  // namespace

void set_fork_steps(const ForkSteps& wanted) {
  steps = wanted;
  single_threaded = static_cast<const char*>(glibc::libc_symbol("__libc_single_threaded"));
  register_own();
}

}  // namespace quarl

// What pthread_atfork calls, in every library and program. The one that is registered first is the last to run before
// the fork.
extern "C" QUARL_EXPORT int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void* owner) {
  if (!quarl::left_alone()) quarl::register_own();
  const quarl::Register next = quarl::next_register();
  return next != nullptr ? next(prepare, parent, child, owner) : ENOMEM;
}
