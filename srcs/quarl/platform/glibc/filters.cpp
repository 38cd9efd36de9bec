// SPDX-License-Identifier: Apache-2.0
// prctl and syscall, by which a program sets itself a filter of system calls (seccomp): the checker hears of it before,
// while it may still write.
#include <limits.h>
#include <linux/seccomp.h>
#include <stdarg.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include "platform/glibc/allocators.h"
#include "platform/glibc/glibc.h"
#include "platform/glibc/loaded_symbols.h"
#include "platform/malloc_header.h"

namespace quarl {
namespace {

constinit FilterSteps steps{};

// A filter that a call is to set.
struct Filter {
  bool wanted = false;
  bool strict = false;  // nothing is left but read, write and the thread's end
  bool every_thread = false;
  bool listened_to = false;  // a descriptor is answered
};

// A call that can only fail, by which programs ask what the kernel knows, sets none.
Filter filter_of_prctl(long option, long mode, long program) {
  if (option != PR_SET_SECCOMP) return {};
  return {mode == SECCOMP_MODE_STRICT || (mode == SECCOMP_MODE_FILTER && program != 0), mode == SECCOMP_MODE_STRICT};
}

Filter filter_of_seccomp(long operation, long flags, long program) {
  const bool strict = operation == SECCOMP_SET_MODE_STRICT && flags == 0 && program == 0;
  const bool filter = operation == SECCOMP_SET_MODE_FILTER && program != 0;
  return {strict || filter, strict, (flags & SECCOMP_FILTER_FLAG_TSYNC) != 0,
          (flags & SECCOMP_FILTER_FLAG_NEW_LISTENER) != 0};
}

// The C library gives nothing back to the kernel any more: it would with calls of its own, and sooner than without the
// checker, which has fixed the size from which on it does.
void keep_all_memory() {
  glibc::libc_allocator.set_option(M_TRIM_THRESHOLD, INT_MAX);
}

// What blocks need more than without the checker cannot be asked for behind a strict filter.
void lay_in_room() {
  constexpr size_t kRoom = 1 << 20;
  keep_all_memory();
  glibc::libc_allocator.release(glibc::libc_allocator.allocate(kRoom));
}

template <typename Call>
long set_filter(const Filter& filter, Call call) {
  if (steps.before == nullptr || !steps.before(filter.every_thread)) return call();
  if (filter.strict) lay_in_room();
  const long result = call();
  const bool set = result == 0 || (filter.listened_to && result > 0);
  if (set && !filter.strict) keep_all_memory();
  steps.after(set);
  return result;
}

// The functions that the program would have called without us. They are looked for at the checker's start: a child of a
// program with threads could not take the loader's lock any more.
struct Next {
  int (*prctl)(int option, long, long, long, long);
  long (*syscall)(long number, long, long, long, long, long, long);
};
constinit Next found{};

const Next& next() {
  if (__atomic_load_n(&found.syscall, __ATOMIC_ACQUIRE) == nullptr) {
    found.prctl = reinterpret_cast<decltype(found.prctl)>(glibc::next_function("prctl"));
    const auto call = reinterpret_cast<decltype(found.syscall)>(glibc::next_function("syscall"));
    __atomic_store_n(&found.syscall, call, __ATOMIC_RELEASE);
  }
  return found;
}

Filter filter_of_syscall(long number, const long (&words)[6]) {
  if (number == SYS_seccomp) return filter_of_seccomp(words[0], words[1], words[2]);
  return number == SYS_prctl ? filter_of_prctl(words[0], words[1], words[2]) : Filter{};
}

}  // namespace

void set_filter_steps(const FilterSteps& wanted) {
  steps = wanted;
  (void)next();
}

}  // namespace quarl

extern "C" {

QUARL_EXPORT int prctl(int option, ...) {
  using namespace quarl;
  va_list rest;
  va_start(rest, option);
  const long words[4] = {va_arg(rest, long), va_arg(rest, long), va_arg(rest, long), va_arg(rest, long)};
  va_end(rest);
  const auto call = [&] { return next().prctl(option, words[0], words[1], words[2], words[3]); };
  const Filter filter = filter_of_prctl(option, words[0], words[1]);
  return filter.wanted ? static_cast<int>(set_filter(filter, call)) : call();
}

QUARL_EXPORT long syscall(long number, ...) noexcept {
  using namespace quarl;
  va_list rest;
  va_start(rest, number);
  const long words[6] = {va_arg(rest, long), va_arg(rest, long), va_arg(rest, long),
                         va_arg(rest, long), va_arg(rest, long), va_arg(rest, long)};
  va_end(rest);
  const auto call = [&] { return next().syscall(number, words[0], words[1], words[2], words[3], words[4], words[5]); };
  const Filter filter = filter_of_syscall(number, words);
  return filter.wanted ? set_filter(filter, call) : call();
}

}  // extern "C"
