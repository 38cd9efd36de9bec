// SPDX-License-Identifier: Apache-2.0
#include "platform/checked_programs.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "platform/environment.h"
#include "platform/system.h"

namespace quarl {
namespace {

constexpr size_t kProcessName = 15;  // characters that the kernel keeps of a process's name

enum class Choice : int { kOpen, kChecked, kLeftAlone };
constinit Choice choice = Choice::kOpen;

const char* base_name(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

// The names by which this program may be meant.
struct OwnNames {
  char process[kProcessName + 1] = "";
  char file[4096] = "";
  const char* called = program_invocation_short_name;

  OwnNames() {
    sys::thread_name(process);
    const long length = sys::read_link("/proc/self/exe", file, sizeof file - 1);
    file[length > 0 ? length : 0] = '\0';
  }

  bool have(const char* name, size_t length) const {
    const auto is = [=](const char* own) { return strlen(own) == length && memcmp(own, name, length) == 0; };
    const bool cut = length > kProcessName && memcmp(process, name, kProcessName) == 0;
    return cut || is(process) || is(base_name(file)) || (called != nullptr && is(called));
  }
};

Choice choose(const char* list) {
  if (list == nullptr || *list == '\0') return Choice::kChecked;
  const OwnNames own;
  for (const char* name = list;; ++name) {
    const size_t length = strcspn(name, ",");
    if (length > 0 && own.have(name, length)) return Choice::kChecked;
    name += length;
    if (*name == '\0') return Choice::kLeftAlone;
  }
}

}  // namespace

bool left_alone() {
  if (choice == Choice::kOpen) {
    if (environ == nullptr) return false;  // the C library has yet to learn it
    const KeepErrno keep;
    choice = choose(environment("QUARL_ONLY"));
  }
  return choice == Choice::kLeftAlone;
}

}  // namespace quarl
