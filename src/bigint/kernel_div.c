/* Quotients: by one limb, by Knuth's method with a reciprocal of two limbs (after Moeller and
 * Granlund), and by halves (after Burnikel and Ziegler), where products do most of the work. */
#include "kernel.h"
#include "kernel_x86_64.h"

/* Returns the quotient of high:low by d, which has its top bit set and is above high. */
/* NOLINTNEXTLINE(readability-non-const-parameter): written by the assembly */
static hx_limb DivideWide(hx_limb high, hx_limb low, hx_limb d, hx_limb* remainder) {
#if HX_ASSEMBLY
    hx_limb quotient;
    __asm__("divq %4" : "=a"(quotient), "=d"(*remainder) : "a"(low), "d"(high), "r"(d) : "cc");
    return quotient;
#elif HX_WIDE_PRODUCTS
    const hx_wide value = ((hx_wide)high << HX_LIMB_BITS) | low;
    const hx_limb quotient = (hx_limb)(value / d);
    *remainder = low - quotient * d;
    return quotient;
#else
    /* Two digits of half a limb, each estimated by the upper half of d. */
    const hx_limb top = d >> 32;
    const hx_limb bottom = d & UINT32_MAX;
    hx_limb quotient = 0;
    for (int shift = 32; shift >= 0; shift -= 32) {
        const hx_limb next = (low >> shift) & UINT32_MAX;
        hx_limb digit = high / top;
        hx_limb rest = high % top;
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

/* For the division by one limb d with its top bit set. */
static hx_limb Reciprocal(hx_limb d) {
    hx_limb rest;
    return DivideWide(~d, HX_LIMB_MAX, d, &rest);
}

/* high:low divided by d, whose reciprocal is v; high is below d. */
static inline hx_limb DivideTwo(hx_limb high, hx_limb low, hx_limb d, hx_limb v, hx_limb* rest) {
    hx_limb q1;
    hx_limb q0 = hx_mul_wide(v, high, &q1);
    q0 += low;
    q1 += high + (q0 < low) + 1;
    hx_limb r = low - q1 * d;
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

hx_divisor hx_divisor_of(hx_limb d) {
    const unsigned shift = HX_LIMB_BITS - hx_bit_length(d);
    return (hx_divisor){d << shift, Reciprocal(d << shift), shift};
}

hx_limb hx_div_by(hx_limb* q, const hx_limb* a, size_t n, hx_divisor d) {
    if (n == 0)
        return 0;
    hx_limb rest = d.shift == 0 ? 0 : a[n - 1] >> (HX_LIMB_BITS - d.shift);
    for (size_t i = n; i > 0; --i) {
        hx_limb low = a[i - 1] << d.shift;
        if (d.shift != 0 && i > 1)
            low |= a[i - 2] >> (HX_LIMB_BITS - d.shift);
        q[i - 1] = DivideTwo(rest, low, d.normal, d.reciprocal, &rest);
    }
    return rest >> d.shift;
}

hx_limb hx_div_1(hx_limb* q, const hx_limb* a, size_t n, hx_limb d) {
    return hx_div_by(q, a, n, hx_divisor_of(d));
}

/* The reciprocal of the two limbs d1:d0. */
static hx_limb ReciprocalOfTwo(hx_limb d1, hx_limb d0) {
    hx_limb v = Reciprocal(d1);
    hx_limb p = d1 * v + d0;
    if (p < d0) {
        --v;
        if (p >= d1) {
            --v;
            p -= d1;
        }
        p -= d1;
    }
    hx_limb t1;
    const hx_limb t0 = hx_mul_wide(v, d0, &t1);
    p += t1;
    if (p < t1) {
        --v;
        if (p > d1 || (p == d1 && t0 >= d0))
            --v;
    }
    return v;
}

/* r1:r0 -= d1:d0 */
static inline void SubtractTwo(hx_limb* r1, hx_limb* r0, hx_limb d1, hx_limb d0) {
    *r1 -= d1 + (*r0 < d0);
    *r0 -= d0;
}

/* u[2]:u[1]:u[0] divided by d1:d0 with the reciprocal v; u[2]:u[1] is below d1:d0. */
static inline hx_limb DivideThree(const hx_limb* u, hx_limb d1, hx_limb d0, hx_limb v) {
    hx_limb q1;
    hx_limb q0 = hx_mul_wide(v, u[2], &q1);
    q0 += u[1];
    q1 += u[2] + (q0 < u[1]);
    hx_limb r1 = u[1] - q1 * d1;
    hx_limb r0 = u[0];
    hx_limb t1;
    const hx_limb t0 = hx_mul_wide(d0, q1, &t1);
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

/* One quotient limb: subtracts it times b from a[0..bn], whose upper bn limbs are not above b. */
static hx_limb DivideStep(hx_limb* a, const hx_limb* b, size_t bn, hx_limb v) {
    hx_limb* top = a + bn - 2;
    hx_limb digit = HX_LIMB_MAX;
    if (top[2] != b[bn - 1] || top[1] < b[bn - 2])
        digit = DivideThree(top, b[bn - 1], b[bn - 2], v);
    const hx_limb borrow = hx_submul_1(a, b, bn, digit);
    const int negative = a[bn] < borrow;
    a[bn] -= borrow;
    if (negative) {
        --digit;
        a[bn] += hx_add_n(a, a, b, bn);
    }
    return digit;
}

/* q[0..an-bn) = a / b for bn >= 2, a[0..bn) = a mod b; the result is the quotient's top limb, 0 or
 * 1. */
static hx_limb DivideBasecase(hx_limb* q, hx_limb* a, size_t an, const hx_limb* b, size_t bn) {
    const hx_limb v = ReciprocalOfTwo(b[bn - 1], b[bn - 2]);
    const hx_limb high = hx_cmp_n(a + an - bn, b, bn) >= 0;
    if (high)
        hx_sub_n(a + an - bn, a + an - bn, b, bn);
    for (size_t i = an - bn; i > 0; --i)
        q[i - 1] = DivideStep(a + i - 1, b, bn, v);
    return high;
}

/* As long as the remainder is negative (`below` tells by how many B^n): one less in the quotient,
 * one b more in the remainder. */
static void Correct(hx_limb* q, size_t qn, hx_limb* q_high, hx_limb* a, const hx_limb* b, size_t n,
                    hx_limb below) {
    while (below != 0) {
        *q_high -= hx_sub_1(q, q, qn, 1);
        below -= hx_add_n(a, a, b, n);
    }
}

/* a[0..n+m) by b[0..n), m <= n, as above. */
static hx_limb DivideByHalves(hx_limb* q, hx_limb* a, size_t m, const hx_limb* b, size_t n,
                              hx_limb* scratch);

/* One half of it: the quotient of the upper part of a by the upper part of b, then what the lower k
 * limbs of b take away. */
static hx_limb DivideHalf(hx_limb* q, hx_limb* a, size_t qn, const hx_limb* b, size_t n, size_t k,
                          hx_limb* scratch) {
    hx_limb* product = scratch;
    hx_limb high = DivideByHalves(q, a + k, qn, b + k, n - k, scratch);
    hx_mul(product, q, qn, b, k, scratch + qn + k);
    hx_limb below = hx_sub(a, a, n, product, qn + k);
    if (high)
        below += hx_sub(a + qn, a + qn, n - qn, b, k);
    Correct(q, qn, &high, a, b, n, below);
    return high;
}

static hx_limb DivideByHalves(hx_limb* q, hx_limb* a, size_t m, const hx_limb* b, size_t n,
                              hx_limb* scratch) {
    if (m < HX_RECURSIVE_DIV || m < 4)
        return DivideBasecase(q, a, n + m, b, n);
    /* A quotient shorter than b is nearly that by the upper m limbs of b. */
    if (m < n)
        return DivideHalf(q, a, m, b, n, n - m, scratch);
    const size_t k = m / 2;
    hx_limb high = DivideHalf(q + k, a + k, m - k, b, n, k, scratch);
    const hx_limb middle = DivideHalf(q, a, k, b, n, k, scratch);
    high += hx_add_1(q + k, q + k, m - k, middle);
    return high;
}

size_t hx_div_normal_scratch(size_t an, size_t bn) {
    const size_t m = hx_smaller(an - bn, bn);
    if (m < HX_RECURSIVE_DIV || m < 4)
        return 0;
    /* A product of up to bn limbs. */
    return bn + hx_mul_scratch_bound(bn / 2 + 1);
}

void hx_div_normal(hx_limb* q, hx_limb* a, size_t an, const hx_limb* b, size_t bn,
                   hx_limb* scratch) {
    if (bn == 1) {
        q[an - 1] = 0;
        a[0] = hx_div_1(q, a, an, b[0]);
        return;
    }
    /* Pieces of bn quotient limbs from the top; only the first can have a high limb. */
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

size_t hx_div_scratch_bound(size_t n) {
    return 4 * n + 8 + hx_mul_scratch_bound(n);
}

size_t hx_div_scratch(size_t an, size_t bn) {
    /* A shifted dividend and divisor, a quotient. */
    return (an + 1) + bn + (an + 1 - bn + 1) + hx_div_normal_scratch(an + 1, bn);
}

void hx_div(hx_limb* q, hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn,
            hx_limb* scratch) {
    hx_limb* dividend = scratch;
    hx_limb* divisor = dividend + an + 1;
    hx_limb* quotient = divisor + bn;
    const unsigned shift = HX_LIMB_BITS - hx_bit_length(b[bn - 1]);
    hx_shift_left(divisor, b, bn, shift);
    dividend[an] = hx_shift_left(dividend, a, an, shift);
    /* The limb shifted out is below b's top limb, so the quotient has no more than an-bn+1. */
    const size_t length = dividend[an] == 0 ? an : an + 1;
    quotient[an - bn] = 0;
    hx_div_normal(quotient, dividend, length, divisor, bn, quotient + an - bn + 2);
    if (q != NULL)
        hx_copy(q, quotient, an - bn + 1);
    if (r != NULL)
        hx_shift_right(r, dividend, bn, shift);
}
