/* Products of any length: choice of the method, and Karatsuba's method. */
#include "kernel.h"

#ifdef HX_BIGINT_TUNABLE
size_t hxKaratsubaMul, hxKaratsubaSqr, hxToom3Mul, hxToom3Sqr, hxRecursiveDiv, hxRecursiveText,
    hxWholeReduction;
#endif

/* Shorter operands do not get shorter in halves. */
enum { KaratsubaLeast = 4 };

static size_t KaratsubaScratch(size_t n) {
    const size_t low = n - n / 2;
    return 2 * low + HxLarger(HxMulNScratch(low), 2 * low + 1);
}

size_t HxMulNScratch(size_t n) {
    const size_t first = HxSmaller(HX_KARATSUBA_MUL, HX_KARATSUBA_SQR);
    const size_t third = HxSmaller(HX_TOOM3_MUL, HX_TOOM3_SQR);
    if (n < first || n < KaratsubaLeast)
        return 0;
    const size_t halves = KaratsubaScratch(n);
    if (n < third || n < HX_TOOM3_LEAST)
        return halves;
    return HxLarger(halves, HxToom3Scratch(n));
}

/* r = |a - b| for an >= bn. Returns whether a < b. */
static int AbsoluteDifference(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn) {
    if (HxNormal(a + bn, an - bn) == 0 && HxCmpN(a, b, bn) < 0) {
        HxSubN(r, b, a, bn);
        HxZero(r + bn, an - bn);
        return 1;
    }
    HxSub(r, a, an, b, bn);
    return 0;
}

/* r = low + middle * B^h + high * B^2h, where r already contains low and high, and the middle is
 * low + high -+ cross. */
static void JoinHalves(HxLimb* r, size_t n, const HxLimb* cross, int add, HxLimb* sum) {
    const size_t low = n - n / 2;
    const size_t high = n / 2;
    sum[2 * low] = HxAdd(sum, r, 2 * low, r + 2 * low, 2 * high);
    if (add)
        sum[2 * low] += HxAddN(sum, sum, cross, 2 * low);
    else
        sum[2 * low] -= HxSubN(sum, sum, cross, 2 * low);
    /* The top limb of the middle may be a zero for which r has no room. */
    const size_t rest = 2 * n - low;
    const size_t middle = HxSmaller(2 * low + 1, rest);
    HxAdd(r + low, r + low, rest, sum, middle);
}

static void KaratsubaMul(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n, HxLimb* scratch) {
    const size_t low = n - n / 2;
    const size_t high = n / 2;
    HxLimb* cross = scratch;
    HxLimb* inner = scratch + 2 * low;
    const int aSign = AbsoluteDifference(r, a, low, a + low, high);
    const int bSign = AbsoluteDifference(r + low, b, low, b + low, high);
    HxMulN(cross, r, r + low, low, inner);
    HxMulN(r, a, b, low, inner);
    HxMulN(r + 2 * low, a + low, b + low, high, inner);
    JoinHalves(r, n, cross, aSign != bSign, inner);
}

static void KaratsubaSqr(HxLimb* r, const HxLimb* a, size_t n, HxLimb* scratch) {
    const size_t low = n - n / 2;
    const size_t high = n / 2;
    HxLimb* cross = scratch;
    HxLimb* inner = scratch + 2 * low;
    AbsoluteDifference(r, a, low, a + low, high);
    HxSqr(cross, r, low, inner);
    HxSqr(r, a, low, inner);
    HxSqr(r + 2 * low, a + low, high, inner);
    JoinHalves(r, n, cross, 0, inner);
}

void HxMulN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n, HxLimb* scratch) {
    if (n < HX_KARATSUBA_MUL || n < KaratsubaLeast)
        HxMulBasecase(r, a, n, b, n);
    else if (n < HX_TOOM3_MUL || n < HX_TOOM3_LEAST)
        KaratsubaMul(r, a, b, n, scratch);
    else
        HxToom3MulN(r, a, b, n, scratch);
}

void HxSqr(HxLimb* r, const HxLimb* a, size_t n, HxLimb* scratch) {
    if (n < HX_KARATSUBA_SQR || n < KaratsubaLeast)
        HxSqrBasecase(r, a, n);
    else if (n < HX_TOOM3_SQR || n < HX_TOOM3_LEAST)
        KaratsubaSqr(r, a, n, scratch);
    else
        HxToom3MulN(r, a, a, n, scratch);
}

size_t HxMulScratch(size_t an, size_t bn) {
    if (an < bn)
        return HxMulScratch(bn, an);
    if (bn < HX_KARATSUBA_MUL || bn < KaratsubaLeast)
        return 0;
    const size_t inner = HxMulNScratch(bn);
    if (an == bn)
        return inner;
    const size_t rest = an % bn;
    const size_t last = rest == 0 ? 0 : HxMulScratch(bn, rest);
    return 2 * bn + HxLarger(inner, last);
}

size_t HxMulScratchBound(size_t n) {
    /* With operands of different lengths, the pieces of all levels have up to 2.7n limbs, and each
     * needs a product of twice its length. Halves need 2n and some limbs per level, thirds 6n. */
    if (n < HX_KARATSUBA_MUL && n < HX_KARATSUBA_SQR)
        return 0;
    if (n < HX_TOOM3_MUL && n < HX_TOOM3_SQR)
        return 8 * n + 256;
    return 12 * n + 1024;
}

/* Splits the longer operand into pieces of the length of the shorter one. */
void HxMul(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn, HxLimb* scratch) {
    if (an < bn) {
        HxMul(r, b, bn, a, an, scratch);
        return;
    }
    if (bn < HX_KARATSUBA_MUL || bn < KaratsubaLeast) {
        HxMulBasecase(r, a, an, b, bn);
        return;
    }
    if (an == bn) {
        HxMulN(r, a, b, bn, scratch);
        return;
    }
    HxLimb* piece = scratch;
    HxLimb* inner = scratch + 2 * bn;
    HxMulN(r, a, b, bn, inner);
    for (size_t done = bn; done < an;) {
        const size_t length = HxSmaller(an - done, bn);
        if (length == bn)
            HxMulN(piece, a + done, b, bn, inner);
        else
            HxMul(piece, b, bn, a + done, length, inner);
        const HxLimb carry = HxAddN(r + done, r + done, piece, bn);
        HxAdd1(r + done + bn, piece + bn, length, carry);
        done += length;
    }
}
