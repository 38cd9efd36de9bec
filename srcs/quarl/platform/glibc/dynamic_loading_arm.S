/* SPDX-License-Identifier: Apache-2.0 */
// dlopen(file, flags) and dlmopen(namespace, file, flags): the flags lose in place what dynamic_loading.cpp does not let
// pass. dlsym(handle, name) and dlvsym(handle, name, version). dlclose(handle). All go on by a jump, so that whom the loader takes for its
// caller is still the program. quarl_way_to_* return the function to go on to in r0 and the flags that may pass in r1.
    .syntax unified
    .arch armv5te
    .arm
    .text

// The function in r12, the flags that may pass in r3; the arguments are kept.
.macro way function
    stmfd   sp!, {r0, r1, r2, lr}
    .save   {lr}
    .pad    #12
    bl      \function
    mov     r12, r0
    mov     r3, r1
    ldmfd   sp!, {r0, r1, r2, lr}
.endm

    .globl  dlopen
    .type   dlopen, %function
    .align  2
dlopen:
    .fnstart
    way     quarl_way_to_dlopen
    and     r1, r1, r3
    bx      r12
    .fnend
    .size   dlopen, . - dlopen

    .globl  dlmopen
    .type   dlmopen, %function
    .align  2
dlmopen:
    .fnstart
    way     quarl_way_to_dlmopen
    cmp     r0, #0                  // LM_ID_BASE, the namespace of the program
    andeq   r2, r2, r3
    bx      r12
    .fnend
    .size   dlmopen, . - dlmopen

// The function takes the handle from r0.
.macro by_handle name, function
    .globl  \name
    .type   \name, %function
    .align  2
\name:
    .fnstart
    way     \function
    bx      r12
    .fnend
    .size   \name, . - \name
.endm

    by_handle dlsym, quarl_way_to_dlsym
    by_handle dlvsym, quarl_way_to_dlvsym
    by_handle dlclose, quarl_way_to_dlclose

    .section .note.GNU-stack, "", %progbits
