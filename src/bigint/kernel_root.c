/* Square roots: one step of Newton's method from the root of the upper half, plus 1, yields a value
 * that exceeds the root of the whole number by at most 1. */
#include "kernel.h"

static HxLimb RootOfLimb(HxLimb a) {
    HxLimb root = 0;
    for (HxLimb bit = (HxLimb)1 << 31; bit > 0; bit >>= 1) {
        if ((root | bit) * (root | bit) <= a)
            root |= bit;
    }
    return root;
}

static size_t RootLength(size_t n) {
    return (n + 1) / 2;
}

size_t HxSqrtScratch(size_t n) {
    /* Each level keeps half its length of the root and of the number during the next one. */
    enum { Levels = 64 };
    return 6 * n + (size_t)4 * Levels + HxDivScratchBound(n);
}

/* start = (the root of a >> 2k, plus 1) << k */
static size_t Start(HxLimb* start, const HxLimb* a, size_t n, uint64_t k, HxLimb* scratch) {
    const size_t limbs = (size_t)(2 * k / HX_LIMB_BITS);
    const size_t shifted = (size_t)(k / HX_LIMB_BITS);
    HxLimb* upper = scratch;
    HxShiftRight(upper, a + limbs, n - limbs, (unsigned)(2 * k % HX_LIMB_BITS));
    const size_t un = HxNormal(upper, n - limbs);
    const size_t rn = RootLength(un);
    HxLimb* root = start + shifted;
    HxSqrt(root, upper, un, upper + un);
    root[rn] = HxAdd1(root, root, rn, 1);
    HxZero(start, shifted);
    HxShiftLeft(root, root, rn + 1, (unsigned)(k % HX_LIMB_BITS));
    return HxNormal(start, shifted + rn + 1);
}

void HxSqrt(HxLimb* r, HxLimb* a, size_t n, HxLimb* scratch) {
    if (n <= 1) {
        if (n == 1)
            r[0] = RootOfLimb(a[0]);
        return;
    }
    const size_t rn = RootLength(n);
    const uint64_t k = (HxBits(a, n) - 1) / 4;
    HxLimb* x = scratch;
    const size_t xn = Start(x, a, n, k, x + rn + 2);
    HxLimb* quotient = x + rn + 2;
    const size_t qn = n - xn + 1;
    HxLimb* square = quotient + n + 2;
    HxDiv(quotient, NULL, a, n, x, xn, square);
    /* (x + a / x) / 2 is at most x. */
    const size_t length = HxNormal(quotient, qn);
    const HxLimb top = HxAdd(x, x, xn, quotient, length);
    HxShiftRight(x, x, xn, 1);
    if (top != 0)
        x[xn - 1] |= (HxLimb)1 << (HX_LIMB_BITS - 1);
    const size_t root = HxNormal(x, xn);
    HxZero(r, rn);
    HxCopy(r, x, root < rn ? root : rn);
    if (root > rn) {
        /* The value is B^rn, which exceeds the root by 1. */
        memset(r, 0xff, rn * sizeof(HxLimb));
        return;
    }
    HxSqr(square, r, rn, square + 2 * rn);
    if (HxCmp(square, 2 * rn, a, n) > 0)
        HxSub1(r, r, rn, 1);
}
