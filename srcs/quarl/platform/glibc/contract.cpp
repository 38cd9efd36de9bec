// SPDX-License-Identifier: Apache-2.0
#include "platform/glibc/contract.h"

#include <errno.h>
#include <gnu/libc-version.h>
#include <stdlib.h>
#include <string.h>

#include "platform/decimal.h"
#include "platform/environment.h"
#include "platform/libc_hooks.h"

constinit int quarl_libc_contract = 0;

namespace quarl {

constinit uint32_t least_alignment = 8;

bool keeps_libc_promises() {
  return quarl_libc_contract != 0;
}

void tell_failure() {
  if (keeps_libc_promises()) errno = ENOMEM;
}

void glibc::choose_contract() {
  const char* wanted = environment("QUARL_CONTRACT");
  if (wanted == nullptr || strcmp(wanted, "libc") != 0) return;
  quarl_libc_contract = 1;
  least_alignment = kLibcAlignment;
}

int glibc::libc_minor_version() {
  const char* point = strchr(gnu_get_libc_version(), '.');
  return point != nullptr ? static_cast<int>(decimal(point + 1)) : 0;
}

bool glibc::aligned_alloc_takes_any() {
  return keeps_libc_promises() && libc_minor_version() < 38;
}

}  // namespace quarl
