/* SPDX-License-Identifier: Apache-2.0 */
// void quarl_call_outermost(void (*end)(void*)): calls end(NULL), which does not return, from a frame that says of itself
// that nothing called it: an unwinder stops here, and the frames of the program below stay as they are.
    .text
    .globl  quarl_call_outermost
    .hidden quarl_call_outermost
    .type   quarl_call_outermost, @function
quarl_call_outermost:
    .cfi_startproc
    .cfi_undefined eip
    movl    4(%esp), %eax
    subl    $12, %esp
    .cfi_def_cfa_offset 16
    movl    $0, (%esp)
    call    *%eax
    hlt
    .cfi_endproc
    .size   quarl_call_outermost, . - quarl_call_outermost

    .section .note.GNU-stack, "", @progbits
