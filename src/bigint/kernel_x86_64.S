/* Inner loops for x86-64 and the System V calling convention. Functions ending in Adx need a
 * processor with BMI2 and ADX: mulx keeps the flags, and adcx and adox carry two sums at once, in
 * CF and in OF. */
#if defined(__x86_64__) && defined(__ELF__) && !defined(__ILP32__)

    .text

    .macro function name
    .globl \name
    .hidden \name
    .type \name, @function
    .p2align 5
\name:
    .endm

    .macro end_function name
    .size \name, . - \name
    .endm

    .macro save_registers
    push %rbx
    push %rbp
    push %r12
    push %r13
    push %r14
    push %r15
    .endm

    .macro restore_registers
    pop %r15
    pop %r14
    pop %r13
    pop %r12
    pop %rbp
    pop %rbx
    .endm

/* HxLimb HxAddNX64(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n)
 * r = a + b; returns the carry. lea and dec keep CF. */
    .macro add_or_sub name, operation
    function \name
    mov %rcx, %r8
    and $3, %r8d
    shr $2, %rcx
    inc %r8
    inc %rcx
    xor %eax, %eax
    jmp 2f
    .p2align 4
1:  mov (%rsi), %r9
    mov 8(%rsi), %r10
    mov 16(%rsi), %r11
    mov 24(%rsi), %rax
    \operation (%rdx), %r9
    \operation 8(%rdx), %r10
    \operation 16(%rdx), %r11
    \operation 24(%rdx), %rax
    mov %r9, (%rdi)
    mov %r10, 8(%rdi)
    mov %r11, 16(%rdi)
    mov %rax, 24(%rdi)
    lea 32(%rsi), %rsi
    lea 32(%rdx), %rdx
    lea 32(%rdi), %rdi
2:  dec %rcx
    jnz 1b
    jmp 4f
3:  mov (%rsi), %r9
    \operation (%rdx), %r9
    mov %r9, (%rdi)
    lea 8(%rsi), %rsi
    lea 8(%rdx), %rdx
    lea 8(%rdi), %rdi
4:  dec %r8
    jnz 3b
    mov $0, %eax
    adc $0, %eax
    ret
    end_function \name
    .endm

    add_or_sub HxAddNX64, adc
    add_or_sub HxSubNX64, sbb

/* One column of a row: adds the sum \sum and the upper half \from of the previous column, and stores
 * the upper half of this column in \to. */
    .macro column offset, low, sum, from, to
    mulx \offset(%rcx), \low, \to
    adcx \sum, \low
    adox \from, \low
    .endm

    .macro column_from least, width, offset, low, sum, from, to
    .if \width >= \least
    column \offset, \low, \sum, \from, \to
    .endif
    .endm

    .macro store_from least, width, sum, offset
    .if \width >= \least
    mov \sum, \offset(%rdi)
    .endif
    .endm

/* Ends a row: adds both carries to its last upper half, which becomes the top sum. */
    .macro close_row last, spare, sum
    mov $0, \spare
    adcx \spare, \last
    adox \spare, \last
    mov \last, \sum
    .endm

/* void HxAddmul<w>Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a)
 * Adds a[0..w) * b[0..n) to r[0..n) and stores the rest in r[n..n+w). The sums of the w columns
 * are in r8 to r15, and each row of n shifts them down by one. n is at least 1. */
    .macro addmul width
    function HxAddmul\width\()Adx
    save_registers
    mov %rdx, %rbp
    xor %r8d, %r8d
    xor %r9d, %r9d
    xor %r10d, %r10d
    xor %r11d, %r11d
    xor %r12d, %r12d
    xor %r13d, %r13d
    xor %r14d, %r14d
    xor %r15d, %r15d
    .p2align 4
1:  mov (%rsi), %rdx
    add $8, %rsi
    xor %eax, %eax
    mulx (%rcx), %rbx, %rax
    adcx %r8, %rbx
    adox (%rdi), %rbx
    mov %rbx, (%rdi)
    lea 8(%rdi), %rdi
    column_from 2, \width, 8, %r8, %r9, %rax, %rbx
    column_from 3, \width, 16, %r9, %r10, %rbx, %rax
    column_from 4, \width, 24, %r10, %r11, %rax, %rbx
    column_from 5, \width, 32, %r11, %r12, %rbx, %rax
    column_from 6, \width, 40, %r12, %r13, %rax, %rbx
    column_from 7, \width, 48, %r13, %r14, %rbx, %rax
    column_from 8, \width, 56, %r14, %r15, %rax, %rbx
    .if \width == 1
    close_row %rax, %rbx, %r8
    .elseif \width == 2
    close_row %rbx, %rax, %r9
    .elseif \width == 3
    close_row %rax, %rbx, %r10
    .elseif \width == 4
    close_row %rbx, %rax, %r11
    .elseif \width == 5
    close_row %rax, %rbx, %r12
    .elseif \width == 6
    close_row %rbx, %rax, %r13
    .elseif \width == 7
    close_row %rax, %rbx, %r14
    .else
    close_row %rbx, %rax, %r15
    .endif
    dec %rbp
    jnz 1b
    mov %r8, (%rdi)
    store_from 2, \width, %r9, 8
    store_from 3, \width, %r10, 16
    store_from 4, \width, %r11, 24
    store_from 5, \width, %r12, 32
    store_from 6, \width, %r13, 40
    store_from 7, \width, %r14, 48
    store_from 8, \width, %r15, 56
    restore_registers
    ret
    end_function HxAddmul\width\()Adx
    .endm

    addmul 1
    addmul 2
    addmul 3
    addmul 4
    addmul 5
    addmul 6
    addmul 7
    addmul 8

/* Two limbs of the result of a square: twice the sums \even and \odd plus the square of a limb. */
    .macro square offset, even, odd, to
    mov \offset(%rsi), %rdx
    mulx %rdx, %rax, %rbx
    adcx \even, \even
    adox %rax, \even
    mov \even, \to(%rdi)
    adcx \odd, \odd
    adox %rbx, \odd
    mov \odd, \to+8(%rdi)
    .endm

/* HxLimb HxSquareGroupsAdx(HxLimb* r, const HxLimb* a, size_t groups, HxLimb carry)
 * Ends a square: r contains the sum of the products of limbs of different groups of four. Adds the
 * products of different limbs of each group, doubles, adds the squares of the limbs and the carry.
 * Returns the carry from the top. */
    function HxSquareGroupsAdx
    save_registers
    push %rdx
    mov %rcx, %rbp
    .p2align 4
1:  mov (%rsi), %rdx
    mulx 8(%rsi), %r9, %r10
    mulx 16(%rsi), %rax, %r11
    add %rax, %r10
    mulx 24(%rsi), %rax, %r12
    adc %rax, %r11
    adc $0, %r12
    mov 8(%rsi), %rdx
    mulx 16(%rsi), %rax, %rbx
    mulx 24(%rsi), %rcx, %r13
    add %rax, %r11
    adc %rbx, %r12
    adc $0, %r13
    mov 16(%rsi), %rdx
    mulx 24(%rsi), %rax, %r14
    add %rcx, %r12
    adc %rax, %r13
    adc $0, %r14
    mov (%rdi), %r8
    add 8(%rdi), %r9
    adc 16(%rdi), %r10
    adc 24(%rdi), %r11
    adc 32(%rdi), %r12
    adc 40(%rdi), %r13
    adc 48(%rdi), %r14
    mov 56(%rdi), %r15
    adc $0, %r15
    mov $0, %ecx
    adc %rcx, %rcx
    mov (%rsi), %rdx
    mulx %rdx, %rax, %rbx
    add %rbp, %rax
    adc $0, %rbx
    lea (%rcx, %rcx), %rbp
    xor %ecx, %ecx
    adcx %r8, %r8
    adox %rax, %r8
    mov %r8, (%rdi)
    adcx %r9, %r9
    adox %rbx, %r9
    mov %r9, 8(%rdi)
    square 8, %r10, %r11, 16
    square 16, %r12, %r13, 32
    square 24, %r14, %r15, 48
    adcx %rcx, %rbp
    adox %rcx, %rbp
    add $32, %rsi
    add $64, %rdi
    decq (%rsp)
    jnz 1b
    mov %rbp, %rax
    pop %rdx
    restore_registers
    ret
    end_function HxSquareGroupsAdx

/* HxLimb HxAddmulRowAdx(HxLimb* r, const HxLimb* a, size_t n, HxLimb b)
 * HxLimb HxSubmulRowAdx(HxLimb* r, const HxLimb* a, size_t n, HxLimb b)
 * r += a * b, r -= a * b; returns the carry. */
    .macro row name, first, next
    function \name
    push %rbx
    push %rbp
    push %r12
    mov %rdx, %rbp
    mov %rcx, %rdx
    mov %rbp, %rcx
    and $3, %ecx
    shr $2, %rbp
    xor %eax, %eax
    test %rbp, %rbp
    jz 2f
    .p2align 4
1:  mulx (%rsi), %r8, %r9
    mulx 8(%rsi), %r10, %r11
    add %rax, %r8
    adc %r9, %r10
    mulx 16(%rsi), %r9, %rbx
    adc %r11, %r9
    mulx 24(%rsi), %r12, %rax
    adc %rbx, %r12
    adc $0, %rax
    \first %r8, (%rdi)
    \next %r10, 8(%rdi)
    \next %r9, 16(%rdi)
    \next %r12, 24(%rdi)
    adc $0, %rax
    add $32, %rsi
    add $32, %rdi
    dec %rbp
    jnz 1b
2:  test %ecx, %ecx
    jz 4f
3:  mulx (%rsi), %r8, %r9
    add %rax, %r8
    adc $0, %r9
    \first %r8, (%rdi)
    adc $0, %r9
    mov %r9, %rax
    add $8, %rsi
    add $8, %rdi
    dec %ecx
    jnz 3b
4:  pop %r12
    pop %rbp
    pop %rbx
    ret
    end_function \name
    .endm

    row HxAddmulRowAdx, add, adc
    row HxSubmulRowAdx, sub, sbb

#endif

#if defined(__linux__) && defined(__ELF__)
    .section .note.GNU-stack, "", %progbits
#endif
