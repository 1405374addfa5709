/* Square roots: the root of the upper half of a number, one too high, is close enough for a single
 * step of Newton's method to be at most one above the root of the whole. */
#include "kernel.h"

static hx_limb RootOfLimb(hx_limb a) {
    hx_limb root = 0;
    for (hx_limb bit = (hx_limb)1 << 31; bit > 0; bit >>= 1) {
        if ((root | bit) * (root | bit) <= a)
            root |= bit;
    }
    return root;
}

static size_t RootLength(size_t n) {
    return (n + 1) / 2;
}

size_t hx_sqrt_scratch(size_t n) {
    /* A level keeps half its length of the root and of the number while the next one runs. */
    enum { Levels = 64 };
    return 6 * n + (size_t)4 * Levels + hx_div_scratch_bound(n);
}

/* start = (the root of a >> 2k, plus 1) << k */
static size_t Start(hx_limb* start, const hx_limb* a, size_t n, uint64_t k, hx_limb* scratch) {
    const size_t limbs = (size_t)(2 * k / HX_LIMB_BITS);
    const size_t shifted = (size_t)(k / HX_LIMB_BITS);
    hx_limb* upper = scratch;
    hx_shift_right(upper, a + limbs, n - limbs, (unsigned)(2 * k % HX_LIMB_BITS));
    const size_t un = hx_normal(upper, n - limbs);
    const size_t rn = RootLength(un);
    hx_limb* root = start + shifted;
    hx_sqrt(root, upper, un, upper + un);
    root[rn] = hx_add_1(root, root, rn, 1);
    hx_zero(start, shifted);
    hx_shift_left(root, root, rn + 1, (unsigned)(k % HX_LIMB_BITS));
    return hx_normal(start, shifted + rn + 1);
}

void hx_sqrt(hx_limb* r, hx_limb* a, size_t n, hx_limb* scratch) {
    if (n <= 1) {
        if (n == 1)
            r[0] = RootOfLimb(a[0]);
        return;
    }
    const size_t rn = RootLength(n);
    const uint64_t k = (hx_bits(a, n) - 1) / 4;
    hx_limb* x = scratch;
    const size_t xn = Start(x, a, n, k, x + rn + 2);
    hx_limb* quotient = x + rn + 2;
    const size_t qn = n - xn + 1;
    hx_limb* square = quotient + n + 2;
    hx_div(quotient, NULL, a, n, x, xn, square);
    /* (x + a / x) / 2 is not above x. */
    const size_t length = hx_normal(quotient, qn);
    const hx_limb top = hx_add(x, x, xn, quotient, length);
    hx_shift_right(x, x, xn, 1);
    if (top != 0)
        x[xn - 1] |= (hx_limb)1 << (HX_LIMB_BITS - 1);
    const size_t root = hx_normal(x, xn);
    hx_zero(r, rn);
    hx_copy(r, x, root < rn ? root : rn);
    if (root > rn) {
        /* B^rn: one too high. */
        memset(r, 0xff, rn * sizeof(hx_limb));
        return;
    }
    hx_sqr(square, r, rn, square + 2 * rn);
    if (hx_cmp(square, 2 * rn, a, n) > 0)
        hx_sub_1(r, r, rn, 1);
}
