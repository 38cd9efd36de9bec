// dlopen(file, flags) and dlmopen(namespace, file, flags): the flags lose in place what quarl_way_to_dlopen() does not let
// pass, and the call goes on by a jump, so that whom dlopen takes for its caller is still the program. quarl_way_to_*
// return the function to go on to in eax and the flags that may pass in edx.
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

    .section .note.GNU-stack, "", @progbits
