// SPDX-License-Identifier: Apache-2.0
#include "quarlheap/lifecycle/process_table.h"

#include "logs/mappings/mapping_records.h"
#include "logs/statistics/statistics.h"
#include "quarlheap/checking/parked_threads.h"
#include "quarlheap/model/used_list.h"
#include "state/hook_lock.h"
#include "state/process.h"

// Nothing in the library refers to it.
extern "C" {
extern QUARL_EXPORT const quarl::ProcessTable qr_process_table;
[[gnu::used]] constinit const quarl::ProcessTable qr_process_table = {
    .magic = {'Q', 'R', 'P', 'R', 'O', 'C', 'T', '\n'},
    .version = quarl::kProcessTableVersion,
    .rows = 10,
    .header = quarl::kHeaderTable,
    .words =
        {
            {"pid", &quarl::proc_pid},
            {"hooks_installed", &quarl::hooks_installed},
            {"first_block", &quarl::hot_words.heap_block_head},
            {"last_block", &quarl::hot_words.heap_block_tail},
            {"block_count", &quarl::hot_words.heap_block_count},
            {"closed_list", &quarl::closed_list},  // first, last, count: as they were at the end
            {"first_mapping", &useed_head},
            {"statistics", &quarl::prof_info},
            {"hot_figures", &quarl::hot_words.figures},  // what malloc and free count, in place of the statistics' own
            {"parked_threads", &quarl::parked_threads},  // 32 of: thread id, why (0 fault, 1, 2: heap, stack limit)
        },
};
}
