/* Quotients: by one limb, by Knuth's method with the reciprocal of two limbs (Moeller and
 * Granlund), and by halves (Burnikel and Ziegler), which turns most of the work into products. */
#include "kernel.h"
#include "kernel_x86_64.h"

/* Returns the quotient of high:low by d, which has its top bit set and is above high. */
/* NOLINTNEXTLINE(readability-non-const-parameter): written by the assembly */
static HxLimb DivideWide(HxLimb high, HxLimb low, HxLimb d, HxLimb* remainder) {
#if HX_ASSEMBLY
    HxLimb quotient;
    __asm__("divq %4" : "=a"(quotient), "=d"(*remainder) : "a"(low), "d"(high), "r"(d) : "cc");
    return quotient;
#elif HX_WIDE_PRODUCTS
    const HxWide value = ((HxWide)high << HX_LIMB_BITS) | low;
    const HxLimb quotient = (HxLimb)(value / d);
    *remainder = low - quotient * d;
    return quotient;
#else
    /* Computes two digits of half a limb, each estimated from the upper half of d. */
    const HxLimb top = d >> 32;
    const HxLimb bottom = d & UINT32_MAX;
    HxLimb quotient = 0;
    for (int shift = 32; shift >= 0; shift -= 32) {
        const HxLimb next = (low >> shift) & UINT32_MAX;
        HxLimb digit = high / top;
        HxLimb rest = high % top;
        while (rest <= UINT32_MAX &&
               (digit > UINT32_MAX || digit * bottom > ((rest << 32) | next))) {
            --digit;
            rest += top;
        }
        high = (high << 32) + next - digit * d;
        quotient = (quotient << 32) | digit;
    }
    *remainder = high;
    return quotient;
#endif
}

/* Returns the reciprocal of a limb with its top bit set. */
static HxLimb Reciprocal(HxLimb d) {
    HxLimb rest;
    return DivideWide(~d, HX_LIMB_MAX, d, &rest);
}

/* Returns high:low / d for the reciprocal v of d; high is below d. */
static inline HxLimb DivideTwo(HxLimb high, HxLimb low, HxLimb d, HxLimb v, HxLimb* rest) {
    HxLimb q1;
    HxLimb q0 = HxMulWide(v, high, &q1);
    q0 += low;
    q1 += high + (q0 < low) + 1;
    HxLimb r = low - q1 * d;
    if (r > q0) {
        --q1;
        r += d;
    }
    if (r >= d) {
        ++q1;
        r -= d;
    }
    *rest = r;
    return q1;
}

HxDivisor HxDivisorOf(HxLimb d) {
    const unsigned shift = HX_LIMB_BITS - HxBitLength(d);
    return (HxDivisor){d << shift, Reciprocal(d << shift), shift};
}

HxLimb HxDivBy(HxLimb* q, const HxLimb* a, size_t n, HxDivisor d) {
    if (n == 0)
        return 0;
    HxLimb rest = d.shift == 0 ? 0 : a[n - 1] >> (HX_LIMB_BITS - d.shift);
    for (size_t i = n; i > 0; --i) {
        HxLimb low = a[i - 1] << d.shift;
        if (d.shift != 0 && i > 1)
            low |= a[i - 2] >> (HX_LIMB_BITS - d.shift);
        q[i - 1] = DivideTwo(rest, low, d.normal, d.reciprocal, &rest);
    }
    return rest >> d.shift;
}

HxLimb HxDiv1(HxLimb* q, const HxLimb* a, size_t n, HxLimb d) {
    return HxDivBy(q, a, n, HxDivisorOf(d));
}

/* Returns the reciprocal of the two limbs d1:d0. */
static HxLimb ReciprocalOfTwo(HxLimb d1, HxLimb d0) {
    HxLimb v = Reciprocal(d1);
    HxLimb p = d1 * v + d0;
    if (p < d0) {
        --v;
        if (p >= d1) {
            --v;
            p -= d1;
        }
        p -= d1;
    }
    HxLimb t1;
    const HxLimb t0 = HxMulWide(v, d0, &t1);
    p += t1;
    if (p < t1) {
        --v;
        if (p > d1 || (p == d1 && t0 >= d0))
            --v;
    }
    return v;
}

/* r1:r0 -= d1:d0 */
static inline void SubtractTwo(HxLimb* r1, HxLimb* r0, HxLimb d1, HxLimb d0) {
    *r1 -= d1 + (*r0 < d0);
    *r0 -= d0;
}

/* Returns u[2]:u[1]:u[0] / d1:d0 for the reciprocal v; u[2]:u[1] is below d1:d0. */
static inline HxLimb DivideThree(const HxLimb* u, HxLimb d1, HxLimb d0, HxLimb v) {
    HxLimb q1;
    HxLimb q0 = HxMulWide(v, u[2], &q1);
    q0 += u[1];
    q1 += u[2] + (q0 < u[1]);
    HxLimb r1 = u[1] - q1 * d1;
    HxLimb r0 = u[0];
    HxLimb t1;
    const HxLimb t0 = HxMulWide(d0, q1, &t1);
    SubtractTwo(&r1, &r0, t1, t0);
    SubtractTwo(&r1, &r0, d1, d0);
    ++q1;
    if (r1 >= q0) {
        --q1;
        r0 += d0;
        r1 += d1 + (r0 < d0);
    }
    if (r1 > d1 || (r1 == d1 && r0 >= d0))
        ++q1;
    return q1;
}

/* Returns one quotient limb and subtracts its product with b from a[0..bn], whose upper bn limbs
 * are at most b. */
static HxLimb DivideStep(HxLimb* a, const HxLimb* b, size_t bn, HxLimb v) {
    HxLimb* top = a + bn - 2;
    HxLimb digit = HX_LIMB_MAX;
    if (top[2] != b[bn - 1] || top[1] < b[bn - 2])
        digit = DivideThree(top, b[bn - 1], b[bn - 2], v);
    const HxLimb borrow = HxSubmul1(a, b, bn, digit);
    const int negative = a[bn] < borrow;
    a[bn] -= borrow;
    if (negative) {
        --digit;
        a[bn] += HxAddN(a, a, b, bn);
    }
    return digit;
}

/* q[0..an-bn) = a / b for bn >= 2, a[0..bn) = a mod b. Returns the quotient's top limb, 0 or 1. */
static HxLimb DivideBasecase(HxLimb* q, HxLimb* a, size_t an, const HxLimb* b, size_t bn) {
    const HxLimb v = ReciprocalOfTwo(b[bn - 1], b[bn - 2]);
    const HxLimb high = HxCmpN(a + an - bn, b, bn) >= 0;
    if (high)
        HxSubN(a + an - bn, a + an - bn, b, bn);
    for (size_t i = an - bn; i > 0; --i)
        q[i - 1] = DivideStep(a + i - 1, b, bn, v);
    return high;
}

/* Decreases the quotient and adds b to the remainder while that is negative: by `below` * B^n less
 * its limbs. */
static void Correct(HxLimb* q, size_t qn, HxLimb* qHigh, HxLimb* a, const HxLimb* b, size_t n,
                    HxLimb below) {
    while (below != 0) {
        *qHigh -= HxSub1(q, q, qn, 1);
        below -= HxAddN(a, a, b, n);
    }
}

/* Divides a[0..n+m) by b[0..n), m <= n, like DivideBasecase. */
static HxLimb DivideByHalves(HxLimb* q, HxLimb* a, size_t m, const HxLimb* b, size_t n,
                             HxLimb* scratch);

/* Computes half of a quotient: divides the upper part of a by the upper part of b, then subtracts
 * the product with the lower k limbs of b. */
static HxLimb DivideHalf(HxLimb* q, HxLimb* a, size_t qn, const HxLimb* b, size_t n, size_t k,
                         HxLimb* scratch) {
    HxLimb* product = scratch;
    HxLimb high = DivideByHalves(q, a + k, qn, b + k, n - k, scratch);
    HxMul(product, q, qn, b, k, scratch + qn + k);
    HxLimb below = HxSub(a, a, n, product, qn + k);
    if (high)
        below += HxSub(a + qn, a + qn, n - qn, b, k);
    Correct(q, qn, &high, a, b, n, below);
    return high;
}

static HxLimb DivideByHalves(HxLimb* q, HxLimb* a, size_t m, const HxLimb* b, size_t n,
                             HxLimb* scratch) {
    if (m < HX_RECURSIVE_DIV || m < 4)
        return DivideBasecase(q, a, n + m, b, n);
    /* A quotient shorter than b depends almost only on the upper limbs of b. */
    if (m < n)
        return DivideHalf(q, a, m, b, n, n - m, scratch);
    const size_t k = m / 2;
    HxLimb high = DivideHalf(q + k, a + k, m - k, b, n, k, scratch);
    const HxLimb middle = DivideHalf(q, a, k, b, n, k, scratch);
    high += HxAdd1(q + k, q + k, m - k, middle);
    return high;
}

size_t HxDivNormalScratch(size_t an, size_t bn) {
    const size_t m = HxSmaller(an - bn, bn);
    if (m < HX_RECURSIVE_DIV || m < 4)
        return 0;
    /* A product has at most bn limbs. */
    return bn + HxMulScratchBound(bn / 2 + 1);
}

void HxDivNormal(HxLimb* q, HxLimb* a, size_t an, const HxLimb* b, size_t bn, HxLimb* scratch) {
    if (bn == 1) {
        q[an - 1] = 0;
        a[0] = HxDiv1(q, a, an, b[0]);
        return;
    }
    /* Computes bn quotient limbs at a time, from the top; only the first piece can have a high
     * limb. */
    size_t left = an - bn;
    size_t piece = left % bn;
    if (piece == 0 && left > 0)
        piece = bn;
    left -= piece;
    q[an - bn] = DivideByHalves(q + left, a + left, piece, b, bn, scratch);
    while (left > 0) {
        left -= bn;
        DivideByHalves(q + left, a + left, bn, b, bn, scratch);
    }
}

size_t HxDivScratchBound(size_t n) {
    return 4 * n + 8 + HxMulScratchBound(n);
}

size_t HxDivScratch(size_t an, size_t bn) {
    /* The shifted dividend, the shifted divisor, the quotient. */
    return (an + 1) + bn + (an + 1 - bn + 1) + HxDivNormalScratch(an + 1, bn);
}

void HxDiv(HxLimb* q, HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn,
           HxLimb* scratch) {
    HxLimb* dividend = scratch;
    HxLimb* divisor = dividend + an + 1;
    HxLimb* quotient = divisor + bn;
    const unsigned shift = HX_LIMB_BITS - HxBitLength(b[bn - 1]);
    HxShiftLeft(divisor, b, bn, shift);
    dividend[an] = HxShiftLeft(dividend, a, an, shift);
    /* The limb shifted out is below b's top limb, so the quotient has at most an-bn+1 limbs. */
    const size_t length = dividend[an] == 0 ? an : an + 1;
    quotient[an - bn] = 0;
    HxDivNormal(quotient, dividend, length, divisor, bn, quotient + an - bn + 2);
    if (q != NULL)
        HxCopy(q, quotient, an - bn + 1);
    if (r != NULL)
        HxShiftRight(r, dividend, bn, shift);
}
