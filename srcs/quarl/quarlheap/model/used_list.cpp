#include "quarlheap/model/used_list.h"

namespace quarl {

constinit Address heap_block_head = 0;
constinit Address heap_block_tail = 0;

}  // namespace quarl
