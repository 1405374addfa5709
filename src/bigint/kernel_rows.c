/* Products row by row, and of blocks of rows, which the quadratic methods are made of. */
#include "kernel.h"
#include "kernel_x86_64.h"

hx_limb hx_mul_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b, hx_limb carry) {
    for (size_t i = 0; i < n; ++i)
        r[i] = hx_mul_add(a[i], b, 0, &carry);
    return carry;
}

hx_limb hx_addmul_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b) {
#if HX_ASSEMBLY
    if (hx_has_adx())
        return hx_addmul_row_adx(r, a, n, b);
#endif
    hx_limb carry = 0;
    for (size_t i = 0; i < n; ++i)
        r[i] = hx_mul_add(a[i], b, r[i], &carry);
    return carry;
}

hx_limb hx_submul_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b) {
#if HX_ASSEMBLY
    if (hx_has_adx())
        return hx_submul_row_adx(r, a, n, b);
#endif
    hx_limb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        const hx_limb product = hx_mul_add(a[i], b, 0, &carry);
        carry += r[i] < product;
        r[i] -= product;
    }
    return carry;
}

#if HX_ASSEMBLY

static void AddmulBlockAdx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a, size_t w) {
    static void (*const blocks[HX_BLOCK])(hx_limb*, const hx_limb*, size_t, const hx_limb*) = {
        hx_addmul_1_adx, hx_addmul_2_adx, hx_addmul_3_adx, hx_addmul_4_adx,
        hx_addmul_5_adx, hx_addmul_6_adx, hx_addmul_7_adx, hx_addmul_8_adx};
    blocks[w - 1](r, b, n, a);
}

enum { Group = 4 };

/* The groups' part of a square, the last group filled up with zeros. */
static void SquareGroups(hx_limb* r, const hx_limb* a, size_t n) {
    const size_t whole = n / Group;
    const size_t rest = n % Group;
    hx_limb carry = 0;
    if (whole > 0)
        carry = hx_square_groups_adx(r, a, whole, carry);
    if (rest > 0) {
        hx_limb last[Group] = {0};
        hx_limb sums[2 * Group] = {0};
        hx_copy(last, a + whole * Group, rest);
        hx_copy(sums, r + 2 * whole * Group, 2 * rest);
        hx_square_groups_adx(sums, last, 1, carry);
        hx_copy(r + 2 * whole * Group, sums, 2 * rest);
    }
}

/* Adds the products of the limbs of the two groups in each block, which lie apart. */
static void AddCrosses(hx_limb* r, const hx_limb* a, size_t n) {
    for (size_t i = 0; i + Group < n; i += HX_BLOCK) {
        const size_t second = hx_smaller(n - i - Group, Group);
        hx_limb cross[2 * Group] = {0};
        AddmulBlockAdx(cross, a + i + Group, second, a + i, Group);
        hx_limb* at = r + 2 * i + Group;
        const size_t above = 2 * n - (2 * i + Group) - (Group + second);
        const hx_limb carry = hx_add_n(at, at, cross, Group + second);
        hx_add_1(at + Group + second, at + Group + second, above, carry);
    }
}

static void SqrBasecaseAdx(hx_limb* r, const hx_limb* a, size_t n) {
    hx_zero(r, 2 * n);
    for (size_t i = 0; i + HX_BLOCK < n; i += HX_BLOCK)
        AddmulBlockAdx(r + 2 * i + HX_BLOCK, a + i + HX_BLOCK, n - i - HX_BLOCK, a + i, HX_BLOCK);
    AddCrosses(r, a, n);
    SquareGroups(r, a, n);
}

#endif

void hx_addmul_block(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a, size_t w) {
#if HX_ASSEMBLY
    if (hx_has_adx()) {
        AddmulBlockAdx(r, b, n, a, w);
        return;
    }
#endif
    for (size_t i = 0; i < w; ++i)
        r[n + i] = hx_addmul_1(r + i, b, n, a[i]);
}

void hx_mul_basecase(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn) {
    hx_zero(r, an);
    for (size_t i = 0; i < bn; i += HX_BLOCK)
        hx_addmul_block(r + i, a, an, b + i, hx_smaller(bn - i, HX_BLOCK));
}

void hx_sqr_basecase(hx_limb* r, const hx_limb* a, size_t n) {
#if HX_ASSEMBLY
    if (hx_has_adx()) {
        SqrBasecaseAdx(r, a, n);
        return;
    }
#endif
    hx_zero(r, n);
    r[2 * n - 1] = 0;
    for (size_t i = 0; i + 1 < n; ++i)
        r[n + i] = hx_addmul_1(r + 2 * i + 1, a + i + 1, n - 1 - i, a[i]);
    hx_shift_left(r, r, 2 * n, 1);
    hx_limb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        hx_limb high;
        const hx_limb low = hx_mul_wide(a[i], a[i], &high);
        r[2 * i] = hx_add_carry(r[2 * i], low, &carry);
        r[2 * i + 1] = hx_add_carry(r[2 * i + 1], high, &carry);
    }
}
