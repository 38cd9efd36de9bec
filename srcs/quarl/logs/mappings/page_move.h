// SPDX-License-Identifier: Apache-2.0
// Memory of the checker's that lies somewhere else now, and the pointers into it.
#pragma once

#include "platform/address.h"

namespace quarl {

struct PageMove {
  AddressRange from;
  Address to;

  template <typename Object>
  void follow(Object** pointer) const {
    const Address address = address_of(*pointer);
    if (from.holds(address)) *pointer = static_cast<Object*>(pointer_to(address - from.start + to));
  }
};

}  // namespace quarl
