/* Products of any length: the choice of a method, and Karatsuba's. */
#include "kernel.h"

#ifdef HX_BIGINT_TUNABLE
size_t hx_karatsuba_mul, hx_karatsuba_sqr, hx_toom3_mul, hx_toom3_sqr, hx_recursive_div,
    hx_recursive_text, hx_whole_reduction;
#endif

/* Karatsuba's halves and the thirds of the next method need some length to be shorter. */
enum { KaratsubaLeast = 4 };

static size_t KaratsubaScratch(size_t n) {
    const size_t low = n - n / 2;
    return 2 * low + hx_larger(hx_mul_n_scratch(low), 2 * low + 1);
}

size_t hx_mul_n_scratch(size_t n) {
    const size_t first = hx_smaller(HX_KARATSUBA_MUL, HX_KARATSUBA_SQR);
    const size_t third = hx_smaller(HX_TOOM3_MUL, HX_TOOM3_SQR);
    if (n < first || n < KaratsubaLeast)
        return 0;
    const size_t halves = KaratsubaScratch(n);
    if (n < third || n < HX_TOOM3_LEAST)
        return halves;
    return hx_larger(halves, hx_toom3_scratch(n));
}

/* r = |a - b| for an >= bn; the result tells whether a < b. */
static int AbsoluteDifference(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b,
                              size_t bn) {
    if (hx_normal(a + bn, an - bn) == 0 && hx_cmp_n(a, b, bn) < 0) {
        hx_sub_n(r, b, a, bn);
        hx_zero(r + bn, an - bn);
        return 1;
    }
    hx_sub(r, a, an, b, bn);
    return 0;
}

/* Puts r = low + middle * B^h + high * B^2h together, where r holds low and high, and the middle is
 * low + high -+ cross. */
static void JoinHalves(hx_limb* r, size_t n, const hx_limb* cross, int add, hx_limb* sum) {
    const size_t low = n - n / 2;
    const size_t high = n / 2;
    sum[2 * low] = hx_add(sum, r, 2 * low, r + 2 * low, 2 * high);
    if (add)
        sum[2 * low] += hx_add_n(sum, sum, cross, 2 * low);
    else
        sum[2 * low] -= hx_sub_n(sum, sum, cross, 2 * low);
    /* The middle may have a zero at the top that would not fit above an odd length. */
    const size_t rest = 2 * n - low;
    const size_t middle = hx_smaller(2 * low + 1, rest);
    hx_add(r + low, r + low, rest, sum, middle);
}

static void KaratsubaMul(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n,
                         hx_limb* scratch) {
    const size_t low = n - n / 2;
    const size_t high = n / 2;
    hx_limb* cross = scratch;
    hx_limb* inner = scratch + 2 * low;
    const int aSign = AbsoluteDifference(r, a, low, a + low, high);
    const int bSign = AbsoluteDifference(r + low, b, low, b + low, high);
    hx_mul_n(cross, r, r + low, low, inner);
    hx_mul_n(r, a, b, low, inner);
    hx_mul_n(r + 2 * low, a + low, b + low, high, inner);
    JoinHalves(r, n, cross, aSign != bSign, inner);
}

static void KaratsubaSqr(hx_limb* r, const hx_limb* a, size_t n, hx_limb* scratch) {
    const size_t low = n - n / 2;
    const size_t high = n / 2;
    hx_limb* cross = scratch;
    hx_limb* inner = scratch + 2 * low;
    AbsoluteDifference(r, a, low, a + low, high);
    hx_sqr(cross, r, low, inner);
    hx_sqr(r, a, low, inner);
    hx_sqr(r + 2 * low, a + low, high, inner);
    JoinHalves(r, n, cross, 0, inner);
}

void hx_mul_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n, hx_limb* scratch) {
    if (n < HX_KARATSUBA_MUL || n < KaratsubaLeast)
        hx_mul_basecase(r, a, n, b, n);
    else if (n < HX_TOOM3_MUL || n < HX_TOOM3_LEAST)
        KaratsubaMul(r, a, b, n, scratch);
    else
        hx_toom3_mul_n(r, a, b, n, scratch);
}

void hx_sqr(hx_limb* r, const hx_limb* a, size_t n, hx_limb* scratch) {
    if (n < HX_KARATSUBA_SQR || n < KaratsubaLeast)
        hx_sqr_basecase(r, a, n);
    else if (n < HX_TOOM3_SQR || n < HX_TOOM3_LEAST)
        KaratsubaSqr(r, a, n, scratch);
    else
        hx_toom3_mul_n(r, a, a, n, scratch);
}

size_t hx_mul_scratch(size_t an, size_t bn) {
    if (an < bn)
        return hx_mul_scratch(bn, an);
    if (bn < HX_KARATSUBA_MUL || bn < KaratsubaLeast)
        return 0;
    const size_t inner = hx_mul_n_scratch(bn);
    if (an == bn)
        return inner;
    const size_t rest = an % bn;
    const size_t last = rest == 0 ? 0 : hx_mul_scratch(bn, rest);
    return 2 * bn + hx_larger(inner, last);
}

size_t hx_mul_scratch_bound(size_t n) {
    /* The pieces of all levels of a product of unlike lengths are up to 2.7n limbs long, and each
     * holds a product of twice its length. Halves need 2n and something per level, thirds 6n. */
    if (n < HX_KARATSUBA_MUL && n < HX_KARATSUBA_SQR)
        return 0;
    if (n < HX_TOOM3_MUL && n < HX_TOOM3_SQR)
        return 8 * n + 256;
    return 12 * n + 1024;
}

/* Cuts the longer operand into pieces of the length of the shorter one. */
void hx_mul(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn,
            hx_limb* scratch) {
    if (an < bn) {
        hx_mul(r, b, bn, a, an, scratch);
        return;
    }
    if (bn < HX_KARATSUBA_MUL || bn < KaratsubaLeast) {
        hx_mul_basecase(r, a, an, b, bn);
        return;
    }
    if (an == bn) {
        hx_mul_n(r, a, b, bn, scratch);
        return;
    }
    hx_limb* piece = scratch;
    hx_limb* inner = scratch + 2 * bn;
    hx_mul_n(r, a, b, bn, inner);
    for (size_t done = bn; done < an;) {
        const size_t length = hx_smaller(an - done, bn);
        if (length == bn)
            hx_mul_n(piece, a + done, b, bn, inner);
        else
            hx_mul(piece, b, bn, a + done, length, inner);
        const hx_limb carry = hx_add_n(r + done, r + done, piece, bn);
        hx_add_1(r + done + bn, piece + bn, length, carry);
        done += length;
    }
}
