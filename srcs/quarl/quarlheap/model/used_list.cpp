#include "quarlheap/model/used_list.h"

namespace quarl {

constinit Address heap_block_head = 0;
constinit Address heap_block_tail = 0;
constinit bool used_list_closed = false;

void close_used_list() {
  used_list_closed = true;
  heap_block_head = heap_block_tail = 0;
}

}  // namespace quarl
