// Is one block sound?
#pragma once

#include "quarlheap/model/block_header.h"

namespace quarl {

enum FaultCode : int {
  QR_FAULT_NONE = 0,
  QR_FAULT_DOUBLE_FREE = 1,  // the block was released before
  QR_FAULT_HEAD = 2,         // a write below the block
  QR_FAULT_TAIL = 3,         // a write past the user's bytes
  QR_FAULT_INVALID = 4,      // for reports only
};

// Reads only: the word before the pointer, which must be there, and what can be a block's. 0, 1, 2 or 3. A link that
// leads to where no block can be is a damaged head, as is a header whose claims cannot be.
FaultCode qr_check_block(DoubtfulBlock block) REQUIRES(hook_mutex);

// The rest of the check, of a block that names itself and whose links were looked at: 0, 2 or 3.
FaultCode check_linked_block(const BoundedBlock& block);

// Whether the header agrees with the allocator's chunk and with the memory that is there. Needs no lock.
bool header_fits(const BoundedBlock& block);

}  // namespace quarl
