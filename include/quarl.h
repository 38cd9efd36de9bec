/* SPDX-License-Identifier: Apache-2.0 */
/* The interface that libquarl.so exports to the application, a debugger or a tool. C and C++.
 *
 * Using it is optional: the checker works on programs that know nothing of it. A program that must also run without the
 * checker declares what it uses weak and tests the address first:
 *
 *     extern void quarl_check_mem(void) __attribute__((weak));
 *     if (quarl_check_mem) quarl_check_mem();
 */
#ifndef QUARL_H
#define QUARL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Checks every live block and reports each damaged one on standard output and in the log in use. Returns nothing and
 * stops no thread. Does nothing unless QUARL_SLOPOVER_API, QUARL_SLOPOVER, QUARL_MEM_HEAD and QUARL_ALL are on, as they
 * are by default. May be called from any thread; called in a signal handler that interrupted the checker on the same
 * thread, the check is made as soon as the checker is left. */
void quarl_check_mem(void);

/* Limits. Written by the application or a debugger at any time, read at every allocation while the item is on; a thread
 * whose request passes the limit is parked until it is sent signal 60, and ended then. */
extern unsigned heap_limit;  /* QUARL_HEAP_LIMIT: the most bytes that the application may hold, initially 0xFFFFFFFF */
extern unsigned stack_limit; /* QUARL_STACK_LIMIT: compared with stack_use plus the request, initially 0xFFFFFFFF */
extern unsigned stack_use;   /* initially 0 */

/* An application without ELF symbols at run time may name its functions itself, so that call traces end in main and in
 * clone: by defining these two, sorted by address, with ONE ENTRY MORE than ulSymTblSize counts (the size of a symbol
 * is the distance to the entry behind it). The library's own definitions are weak: one cleared entry and 0. */
struct quarl_symbol {
  uint32_t name;  /* address of the NUL-terminated name */
  uint32_t value; /* address */
  uint32_t type;  /* 2: function */
  uint32_t unused[2];
  uint32_t absolute; /* nonzero: value is an address; 0: relative to the load base, which is 0 */
};
extern struct quarl_symbol taSymTbl[];
extern uint32_t ulSymTblSize; /* entries */

/* For reading only, from here on. */

extern const char* const quarl_version; /* the library's version, "1.0.0" */

extern int qr_sig_num;       /* signal of the interval timer, default 14 (SIGALRM) */
extern int QR_TRACE_MMAP;    /* 1: live mappings are recorded (QUARL_MMAP) */
extern int QR_PAGE_SIZE;     /* bytes of a memory page */
extern int QR_PAGE_NUM;      /* memory pages in a page of mapping records, 4 */
extern int QR_TRACEINFO_NUM; /* entries in a page of mapping records */

/* Records of live mappings (useed_*), free entries (unuse_*), and the pages that hold both, each as head and tail of a
 * doubly linked list. An entry is a 280-byte operation record (docs/log-format.md) followed by the links to the
 * previous and the next entry; a page begins with its links, the number of its entries in use and the address of its
 * first one. Changed under the checker's lock at any time: look at them only while the process is stopped. */
struct quarl_mapping_entry;
struct quarl_mapping_page;
extern struct quarl_mapping_entry* useed_head;
extern struct quarl_mapping_entry* useed_tail;
extern struct quarl_mapping_entry* unuse_head;
extern struct quarl_mapping_entry* unuse_tail;
extern struct quarl_mapping_page* qr_mmap_block_head;
extern struct quarl_mapping_page* qr_mmap_block_tail;

/* Where debuggers find the rest (tools/gdb/quarl.py). */
struct quarl_process_table;
extern const struct quarl_process_table qr_process_table;

extern int srv_desc;        /* the agent's listening socket, -1 when there is none */
extern int srv_socket_desc; /* the agent's connection, -1 when there is none */
extern int socket_desc;     /* closed by the agent when it ends, if above 0; -1 */
extern char* recv_buffer;   /* the agent's 32-byte receive buffer, null when there is none */

#ifdef __cplusplus
}
#endif

#endif
