/* SPDX-License-Identifier: Apache-2.0 */
// dlopen(file, flags) and dlmopen(namespace, file, flags): the flags lose in place what dynamic_loading.cpp does not let
// pass. dlsym(handle, name) and dlvsym(handle, name, version). dlclose(handle). All go on by a jump, so that whom the loader takes for its
// caller is still the program. quarl_way_to_* return the function to go on to in eax and the flags that may pass in edx.
    .text

.macro way function
    subl    $12, %esp
    .cfi_adjust_cfa_offset 12
    call    \function
    addl    $12, %esp
    .cfi_adjust_cfa_offset -12
.endm

    .globl  dlopen
    .type   dlopen, @function
dlopen:
    .cfi_startproc
    way     quarl_way_to_dlopen
    andl    %edx, 8(%esp)
    jmp     *%eax
    .cfi_endproc
    .size   dlopen, . - dlopen

    .globl  dlmopen
    .type   dlmopen, @function
dlmopen:
    .cfi_startproc
    way     quarl_way_to_dlmopen
    cmpl    $0, 4(%esp)             // LM_ID_BASE, the namespace of the program
    jne     1f
    andl    %edx, 12(%esp)
1:
    jmp     *%eax
    .cfi_endproc
    .size   dlmopen, . - dlmopen

.macro by_handle name, function
    .globl  \name
    .type   \name, @function
\name:
    .cfi_startproc
    movl    4(%esp), %eax
    subl    $12, %esp
    .cfi_adjust_cfa_offset 12
    movl    %eax, (%esp)
    call    \function
    addl    $12, %esp
    .cfi_adjust_cfa_offset -12
    jmp     *%eax
    .cfi_endproc
    .size   \name, . - \name
.endm

    by_handle dlsym, quarl_way_to_dlsym
    by_handle dlvsym, quarl_way_to_dlvsym
    by_handle dlclose, quarl_way_to_dlclose

    .section .note.GNU-stack, "", @progbits
