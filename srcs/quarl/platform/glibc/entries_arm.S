/* SPDX-License-Identifier: Apache-2.0 */
// The six hooked entries of the layer on ARM. Each has no frame of its own: it pushes {sl, lr}, calls its hook with
// the stack exactly so, and returns with ldmfd sp!, {sl, pc} (the word 0xE8BD8400), by which a call-trace walk knows
// it. mmap is the exception: its last two arguments go on the stack, where a hook called so would find {sl, lr}
// instead; it has a plain frame.
//
// A thread inside the checker (quarl_thread_cache.hook_depth, the first word, above 0), and every thread while the hook
// variable is null, goes to the raw entry.

    .syntax unified
#if __ARM_ARCH >= 7
    .arch armv7-a
#else
    .arch armv5te
#endif
    .arm
    .hidden quarl_libc_contract, __malloc_hook, __free_hook, __realloc_hook, __memalign_hook, __mmap_hook, __munmap_hook
    .text

// r12 = hook_depth of the calling thread. Keeps r0 to r3; __aeabi_read_tp, for processors of which some do not hold the
// thread's address in a register, changes r0, r12 and lr only.
.macro load_hook_depth name
#if __ARM_ARCH >= 7
    mrc     p15, 0, sl, c13, c0, 3
    ldr     r12, .Ldepth_\name
.Ldepth_at_\name:
    ldr     r12, [pc, r12]
    ldr     r12, [sl, r12]
#else
    mov     sl, r0
    bl      __aeabi_read_tp
    ldr     r12, .Ldepth_\name
.Ldepth_at_\name:
    ldr     r12, [pc, r12]
    ldr     r12, [r0, r12]
    mov     r0, sl
#endif
.endm

// r12 = the word in the hook variable.
.macro load_hook name
    ldr     r12, .Lhook_\name
.Lhook_at_\name:
    ldr     r12, [pc, r12]
.endm

// The offsets that the two macros above use.
.macro literals name, hook
    .align  2
.Ldepth_\name:
    .word   quarl_thread_cache(GOTTPOFF) + (. - .Ldepth_at_\name - 8)
.Lhook_\name:
    .word   \hook - .Lhook_at_\name - 8
.endm

// A request of 0 bytes becomes an aligned one where glibc's promises are kept (contract.h), by a jump: the entry of memalign
// is the one that the program called.
.macro empty_if_null name, register
    cmp     \register, #0
    bne     .Lsome_\name
    ldr     r12, .Lcontract_\name
.Lcontract_at_\name:
    ldr     r12, [pc, r12]
    cmp     r12, #0
    beq     .Lsome_\name
    mov     r0, #8
    mov     r1, #0
    b       memalign
.Lcontract_\name:
    .word   quarl_libc_contract - .Lcontract_at_\name - 8
.Lsome_\name:
.endm
.macro empty_malloc name
    empty_if_null \name, r0
.endm
.macro empty_realloc name
    orr     r12, r0, r1
    empty_if_null \name, r12
.endm

// caller: the register of the hook's last argument, the return address of the entry's caller.
.macro frameless_entry name, hook, raw, caller, empty
    .global \name
    .type   \name, %function
    .align  2
\name:
    .fnstart
    .ifnb \empty
    \empty \name
    .endif
    stmfd   sp!, {sl, lr}
    .save   {sl, lr}
    load_hook_depth \name
    cmp     r12, #0
    bne     1f
    load_hook \name
    cmp     r12, #0
    beq     1f
    .ifnb \caller
    ldr     \caller, [sp, #4]
    .endif
    mov     lr, pc
    bx      r12
    ldmfd   sp!, {sl, pc}
1:
    bl      \raw
    ldmfd   sp!, {sl, pc}
    .fnend
    literals \name, \hook
    .size   \name, . - \name
.endm

    frameless_entry malloc, __malloc_hook, quarl_layer_allocate, r1, empty_malloc
    frameless_entry free, __free_hook, quarl_layer_release, r1
    frameless_entry realloc, __realloc_hook, quarl_layer_resize, r2, empty_realloc
    frameless_entry memalign, __memalign_hook, quarl_layer_allocate_aligned, r2
    frameless_entry munmap, __munmap_hook, ext_munmap,

    .global mmap
    .type   mmap, %function
    .align  2
mmap:
    mov     r12, sp
    stmfd   sp!, {r4, sl, fp, r12, lr, pc}
    sub     fp, r12, #4
    load_hook_depth mmap
    mov     r4, r12
    ldr     r12, [fp, #4]
    ldr     lr, [fp, #8]
    stmfd   sp!, {r12, lr}
    cmp     r4, #0
    bne     1f
    load_hook mmap
    cmp     r12, #0
    beq     1f
    mov     lr, pc
    bx      r12
    sub     sp, fp, #20
    ldmfd   sp, {r4, sl, fp, sp, pc}
1:
    bl      ext_mmap
    sub     sp, fp, #20
    ldmfd   sp, {r4, sl, fp, sp, pc}
    literals mmap, __mmap_hook
    .size   mmap, . - mmap

    .section .note.GNU-stack, "", %progbits
