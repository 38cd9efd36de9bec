// SPDX-License-Identifier: Apache-2.0
// Allocates from code without frame pointers while the frame pointer register holds every kind of garbage.
#include <stdint.h>
#include <stdlib.h>

#include "announce.h"

// Calls malloc(32) with the frame pointer register set to the given value, and returns its result.
void* malloc_with_frame_pointer(uintptr_t frame_pointer);

#if defined __i386__
__asm__(
    ".globl malloc_with_frame_pointer\n"
    ".type malloc_with_frame_pointer, @function\n"
    "malloc_with_frame_pointer:\n"
    "  push %ebp\n"
    "  push %ebx\n"
    "  mov 12(%esp), %ebp\n"
    "  call 1f\n"
    "1: pop %ebx\n"
    "  add $_GLOBAL_OFFSET_TABLE_+(. - 1b), %ebx\n"
    "  sub $12, %esp\n"
    "  push $32\n"
    "  call malloc@PLT\n"
    "  add $16, %esp\n"
    "  pop %ebx\n"
    "  pop %ebp\n"
    "  ret\n");
#else
__asm__(
    ".globl malloc_with_frame_pointer\n"
    ".type malloc_with_frame_pointer, %function\n"
    ".arm\n"
    "malloc_with_frame_pointer:\n"
    "  push {r4, fp, lr}\n"
    "  sub sp, sp, #4\n"
    "  mov fp, r0\n"
    "  mov r0, #32\n"
    "  bl malloc\n"
    "  add sp, sp, #4\n"
    "  pop {r4, fp, pc}\n");
#endif

int main(void) {
  uint32_t here[8] = {0};
  uintptr_t stack = (uintptr_t)here;
  // On the stack but meaningless, in front of unmapped pages, on the heap, in code, odd, and next to both ends.
  uintptr_t values[] = {0,
                        1,
                        4,
                        12,
                        0x1000,
                        0xfffffff0u,
                        0xffffffffu,
                        0x80000000u,
                        stack + 3,
                        stack + 16,
                        stack + 0x100000,
                        (uintptr_t)main,
                        (uintptr_t)malloc(64)};
  here[1] = 0x1003;                  // taken for a return address: no code there
  here[3] = (uint32_t)(stack + 16);  // taken for a frame that points to itself
  here[5] = 0xffffffffu;
  for (unsigned i = 0; i < sizeof values / sizeof values[0]; ++i) free(malloc_with_frame_pointer(values[i]));
  announce("done", main);
  return 0;
}
