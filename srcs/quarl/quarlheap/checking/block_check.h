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

// Reads only. 0, 1, 2 or 3.
FaultCode qr_check_block(DoubtfulBlock block);

// The same for a block that names itself and whose header offset was taken for `offset`.
FaultCode check_block_at(DoubtfulBlock block, uint32_t offset);

}  // namespace quarl
