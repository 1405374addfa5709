/* Products of rows and of blocks of rows, for the quadratic methods. */
#include "kernel.h"
#include "kernel_x86_64.h"

HxLimb HxMul1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b, HxLimb carry) {
    for (size_t i = 0; i < n; ++i)
        r[i] = HxMulAdd(a[i], b, 0, &carry);
    return carry;
}

HxLimb HxAddmul1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b) {
#if HX_ASSEMBLY
    if (HxHasAdx())
        return HxAddmulRowAdx(r, a, n, b);
#endif
    HxLimb carry = 0;
    for (size_t i = 0; i < n; ++i)
        r[i] = HxMulAdd(a[i], b, r[i], &carry);
    return carry;
}

HxLimb HxSubmul1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b) {
#if HX_ASSEMBLY
    if (HxHasAdx())
        return HxSubmulRowAdx(r, a, n, b);
#endif
    HxLimb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        const HxLimb product = HxMulAdd(a[i], b, 0, &carry);
        carry += r[i] < product;
        r[i] -= product;
    }
    return carry;
}

#if HX_ASSEMBLY

static void AddmulBlockAdx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a, size_t w) {
    static void (*const blocks[HX_BLOCK])(HxLimb*, const HxLimb*, size_t, const HxLimb*) = {
        HxAddmul1Adx, HxAddmul2Adx, HxAddmul3Adx, HxAddmul4Adx,
        HxAddmul5Adx, HxAddmul6Adx, HxAddmul7Adx, HxAddmul8Adx};
    blocks[w - 1](r, b, n, a);
}

enum { Group = 4 };

/* Completes a square group by group, and pads the last group with zeros. */
static void SquareGroups(HxLimb* r, const HxLimb* a, size_t n) {
    const size_t whole = n / Group;
    const size_t rest = n % Group;
    HxLimb carry = 0;
    if (whole > 0)
        carry = HxSquareGroupsAdx(r, a, whole, carry);
    if (rest > 0) {
        HxLimb last[Group] = {0};
        HxLimb sums[2 * Group] = {0};
        HxCopy(last, a + whole * Group, rest);
        HxCopy(sums, r + 2 * whole * Group, 2 * rest);
        HxSquareGroupsAdx(sums, last, 1, carry);
        HxCopy(r + 2 * whole * Group, sums, 2 * rest);
    }
}

/* Adds the products of limbs of different groups in the same block. */
static void AddCrosses(HxLimb* r, const HxLimb* a, size_t n) {
    for (size_t i = 0; i + Group < n; i += HX_BLOCK) {
        const size_t second = HxSmaller(n - i - Group, Group);
        HxLimb cross[2 * Group] = {0};
        AddmulBlockAdx(cross, a + i + Group, second, a + i, Group);
        HxLimb* at = r + 2 * i + Group;
        const size_t above = 2 * n - (2 * i + Group) - (Group + second);
        const HxLimb carry = HxAddN(at, at, cross, Group + second);
        HxAdd1(at + Group + second, at + Group + second, above, carry);
    }
}

static void SqrBasecaseAdx(HxLimb* r, const HxLimb* a, size_t n) {
    HxZero(r, 2 * n);
    for (size_t i = 0; i + HX_BLOCK < n; i += HX_BLOCK)
        AddmulBlockAdx(r + 2 * i + HX_BLOCK, a + i + HX_BLOCK, n - i - HX_BLOCK, a + i, HX_BLOCK);
    AddCrosses(r, a, n);
    SquareGroups(r, a, n);
}

#endif

void HxAddmulBlock(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a, size_t w) {
#if HX_ASSEMBLY
    if (HxHasAdx()) {
        AddmulBlockAdx(r, b, n, a, w);
        return;
    }
#endif
    for (size_t i = 0; i < w; ++i)
        r[n + i] = HxAddmul1(r + i, b, n, a[i]);
}

void HxMulBasecase(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn) {
    HxZero(r, an);
    for (size_t i = 0; i < bn; i += HX_BLOCK)
        HxAddmulBlock(r + i, a, an, b + i, HxSmaller(bn - i, HX_BLOCK));
}

void HxSqrBasecase(HxLimb* r, const HxLimb* a, size_t n) {
#if HX_ASSEMBLY
    if (HxHasAdx()) {
        SqrBasecaseAdx(r, a, n);
        return;
    }
#endif
    HxZero(r, n);
    r[2 * n - 1] = 0;
    for (size_t i = 0; i + 1 < n; ++i)
        r[n + i] = HxAddmul1(r + 2 * i + 1, a + i + 1, n - 1 - i, a[i]);
    HxShiftLeft(r, r, 2 * n, 1);
    HxLimb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        HxLimb high;
        const HxLimb low = HxMulWide(a[i], a[i], &high);
        r[2 * i] = HxAddCarry(r[2 * i], low, &carry);
        r[2 * i + 1] = HxAddCarry(r[2 * i + 1], high, &carry);
    }
}
