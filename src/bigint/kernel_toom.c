/* Products by thirds, after Toom and Cook: both operands are polynomials a0 + a1 x + a2 x^2 at
 * x = B^k, the product is evaluated at 0, 1, -1, 2 and infinity, and its five coefficients follow
 * from the five values. */
#include "kernel.h"

/* The values of one operand, k + 1 limbs each. */
typedef struct {
    hx_limb* at1;
    hx_limb* atMinus1; /* magnitude */
    hx_limb* at2;
} Values;

typedef struct {
    size_t k;   /* limbs of a0 and a1 */
    size_t top; /* limbs of a2 */
} Thirds;

static Thirds Split(size_t n) {
    const size_t k = (n + 2) / 3;
    return (Thirds){k, n - 2 * k};
}

size_t hx_toom3_scratch(size_t n) {
    const size_t k = Split(n).k;
    /* Values of two operands, products at 1, -1 and 2. */
    return 6 * (k + 1) + 3 * (2 * k + 2) + hx_mul_n_scratch(k + 1);
}

/* The result tells whether the value at -1 is negative. */
static int Evaluate(const hx_limb* a, Thirds t, Values v) {
    const size_t k = t.k;
    const hx_limb* a1 = a + k;
    const hx_limb* a2 = a + 2 * k;
    /* at2 serves for the even part a0 + a2 first. */
    v.at2[k] = hx_add(v.at2, a, k, a2, t.top);
    v.at1[k] = v.at2[k] + hx_add_n(v.at1, v.at2, a1, k);
    const int negative = v.at2[k] == 0 && hx_cmp_n(v.at2, a1, k) < 0;
    if (negative) {
        hx_sub_n(v.atMinus1, a1, v.at2, k);
        v.atMinus1[k] = 0;
    } else {
        v.atMinus1[k] = v.at2[k] - hx_sub_n(v.atMinus1, v.at2, a1, k);
    }
    /* a0 + 2 (a1 + 2 a2) */
    hx_copy(v.at2, a2, t.top);
    hx_zero(v.at2 + t.top, k + 1 - t.top);
    hx_shift_left(v.at2, v.at2, k + 1, 1);
    hx_add(v.at2, v.at2, k + 1, a1, k);
    hx_shift_left(v.at2, v.at2, k + 1, 1);
    hx_add(v.at2, v.at2, k + 1, a, k);
    return negative;
}

/* a is a multiple of 3: multiplies from the lowest limb on by the inverse of 3 modulo B. */
static void DivideBy3(hx_limb* a, size_t n) {
    const hx_limb inverse = 0xAAAAAAAAAAAAAAABU;
    const hx_limb third = HX_LIMB_MAX / 3;
    hx_limb borrow = 0;
    for (size_t i = 0; i < n; ++i) {
        const hx_limb limb = a[i] - borrow;
        const hx_limb quotient = limb * inverse;
        borrow = (hx_limb)(a[i] < borrow) + (hx_limb)(quotient > third) +
                 (hx_limb)(quotient > 2 * third);
        a[i] = quotient;
    }
}

/* Adds `n` limbs at a place of r that has `room`, where what does not fit is zero. */
static void AddAt(hx_limb* r, size_t room, const hx_limb* a, size_t n) {
    hx_add(r, r, room, a, hx_smaller(n, room));
}

/* r holds the lowest and the highest coefficient with a gap of 2k limbs between; w1, wMinus1 and
 * w2 hold the values there, which become the other three. */
static void Interpolate(hx_limb* r, size_t n, hx_limb* w1, hx_limb* wMinus1, hx_limb* w2,
                        int negative) {
    const Thirds t = Split(n);
    const size_t k = t.k;
    const size_t m = 2 * k + 2;
    const hx_limb* lowest = r;
    const hx_limb* highest = r + 4 * k;
    if (negative) {
        hx_add_n(w2, w2, wMinus1, m);
        hx_add_n(wMinus1, w1, wMinus1, m);
    } else {
        hx_sub_n(w2, w2, wMinus1, m);
        hx_sub_n(wMinus1, w1, wMinus1, m);
    }
    DivideBy3(w2, m);                       /* c1 + c2 + 3 c3 + 5 c4 */
    hx_shift_right(wMinus1, wMinus1, m, 1); /* c1 + c3 */
    hx_sub(w1, w1, m, lowest, 2 * k);       /* c1 + c2 + c3 + c4 */
    hx_sub_n(w2, w2, w1, m);
    hx_shift_right(w2, w2, m, 1); /* c3 + 2 c4 */
    hx_sub_n(w1, w1, wMinus1, m);
    hx_sub(w1, w1, m, highest, 2 * t.top); /* c2 */
    hx_sub(w2, w2, m, highest, 2 * t.top);
    hx_sub(w2, w2, m, highest, 2 * t.top); /* c3 */
    hx_sub_n(wMinus1, wMinus1, w2, m);     /* c1 */
    hx_copy(r + 2 * k, w1, 2 * k);
    AddAt(r + 4 * k, 2 * t.top, w1 + 2 * k, 2);
    AddAt(r + k, 2 * n - k, wMinus1, m);
    AddAt(r + 3 * k, 2 * n - 3 * k, w2, m);
}

void hx_toom3_mul_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n, hx_limb* scratch) {
    const Thirds t = Split(n);
    const size_t k = t.k;
    const size_t m = 2 * k + 2;
    hx_limb* w1 = scratch;
    hx_limb* wMinus1 = w1 + m;
    hx_limb* w2 = wMinus1 + m;
    hx_limb* values = w2 + m;
    hx_limb* inner = values + 6 * (k + 1);
    const Values va = {values, values + (k + 1), values + 2 * (k + 1)};
    const int aNegative = Evaluate(a, t, va);
    if (a == b) {
        hx_sqr(w1, va.at1, k + 1, inner);
        hx_sqr(wMinus1, va.atMinus1, k + 1, inner);
        hx_sqr(w2, va.at2, k + 1, inner);
        hx_sqr(r, a, k, inner);
        hx_sqr(r + 4 * k, a + 2 * k, t.top, inner);
        Interpolate(r, n, w1, wMinus1, w2, 0);
        return;
    }
    const Values vb = {values + 3 * (k + 1), values + 4 * (k + 1), values + 5 * (k + 1)};
    const int bNegative = Evaluate(b, t, vb);
    hx_mul_n(w1, va.at1, vb.at1, k + 1, inner);
    hx_mul_n(wMinus1, va.atMinus1, vb.atMinus1, k + 1, inner);
    hx_mul_n(w2, va.at2, vb.at2, k + 1, inner);
    hx_mul_n(r, a, b, k, inner);
    hx_mul_n(r + 4 * k, a + 2 * k, b + 2 * k, t.top, inner);
    Interpolate(r, n, w1, wMinus1, w2, aNegative != bNegative);
}
