/* Products by thirds (Toom and Cook): both operands are polynomials a0 + a1 x + a2 x^2 at x = B^k.
 * The five coefficients of the product follow from its values at 0, 1, -1, 2 and infinity. */
#include "kernel.h"

/* The values of one operand, k + 1 limbs each. */
typedef struct {
    HxLimb* at1;
    HxLimb* atMinus1; /* magnitude */
    HxLimb* at2;
} Values;

typedef struct {
    size_t k;   /* limbs of a0 and a1 */
    size_t top; /* limbs of a2 */
} Thirds;

static Thirds Split(size_t n) {
    const size_t k = (n + 2) / 3;
    return (Thirds){k, n - 2 * k};
}

size_t HxToom3Scratch(size_t n) {
    const size_t k = Split(n).k;
    /* Values of two operands, products at 1, -1 and 2. */
    return 6 * (k + 1) + 3 * (2 * k + 2) + HxMulNScratch(k + 1);
}

/* Returns whether the value at -1 is negative. */
static int Evaluate(const HxLimb* a, Thirds t, Values v) {
    const size_t k = t.k;
    const HxLimb* a1 = a + k;
    const HxLimb* a2 = a + 2 * k;
    /* at2 contains the even part a0 + a2 first. */
    v.at2[k] = HxAdd(v.at2, a, k, a2, t.top);
    v.at1[k] = v.at2[k] + HxAddN(v.at1, v.at2, a1, k);
    const int negative = v.at2[k] == 0 && HxCmpN(v.at2, a1, k) < 0;
    if (negative) {
        HxSubN(v.atMinus1, a1, v.at2, k);
        v.atMinus1[k] = 0;
    } else {
        v.atMinus1[k] = v.at2[k] - HxSubN(v.atMinus1, v.at2, a1, k);
    }
    /* a0 + 2 (a1 + 2 a2) */
    HxCopy(v.at2, a2, t.top);
    HxZero(v.at2 + t.top, k + 1 - t.top);
    HxShiftLeft(v.at2, v.at2, k + 1, 1);
    HxAdd(v.at2, v.at2, k + 1, a1, k);
    HxShiftLeft(v.at2, v.at2, k + 1, 1);
    HxAdd(v.at2, v.at2, k + 1, a, k);
    return negative;
}

/* Divides a multiple of 3 by multiplying each limb, from the lowest up, by 1/3 modulo B. */
static void DivideBy3(HxLimb* a, size_t n) {
    const HxLimb inverse = 0xAAAAAAAAAAAAAAABU;
    const HxLimb third = HX_LIMB_MAX / 3;
    HxLimb borrow = 0;
    for (size_t i = 0; i < n; ++i) {
        const HxLimb limb = a[i] - borrow;
        const HxLimb quotient = limb * inverse;
        borrow =
            (HxLimb)(a[i] < borrow) + (HxLimb)(quotient > third) + (HxLimb)(quotient > 2 * third);
        a[i] = quotient;
    }
}

/* Adds n limbs to the `room` limbs of r; limbs that do not fit are zero. */
static void AddAt(HxLimb* r, size_t room, const HxLimb* a, size_t n) {
    HxAdd(r, r, room, a, HxSmaller(n, room));
}

/* r contains the lowest and the highest coefficient with a gap of 2k limbs between. w1, wMinus1 and
 * w2 contain the values at 1, -1 and 2, and become the other three coefficients. */
static void Interpolate(HxLimb* r, size_t n, HxLimb* w1, HxLimb* wMinus1, HxLimb* w2,
                        int negative) {
    const Thirds t = Split(n);
    const size_t k = t.k;
    const size_t m = 2 * k + 2;
    const HxLimb* lowest = r;
    const HxLimb* highest = r + 4 * k;
    if (negative) {
        HxAddN(w2, w2, wMinus1, m);
        HxAddN(wMinus1, w1, wMinus1, m);
    } else {
        HxSubN(w2, w2, wMinus1, m);
        HxSubN(wMinus1, w1, wMinus1, m);
    }
    DivideBy3(w2, m);                     /* c1 + c2 + 3 c3 + 5 c4 */
    HxShiftRight(wMinus1, wMinus1, m, 1); /* c1 + c3 */
    HxSub(w1, w1, m, lowest, 2 * k);      /* c1 + c2 + c3 + c4 */
    HxSubN(w2, w2, w1, m);
    HxShiftRight(w2, w2, m, 1); /* c3 + 2 c4 */
    HxSubN(w1, w1, wMinus1, m);
    HxSub(w1, w1, m, highest, 2 * t.top); /* c2 */
    HxSub(w2, w2, m, highest, 2 * t.top);
    HxSub(w2, w2, m, highest, 2 * t.top); /* c3 */
    HxSubN(wMinus1, wMinus1, w2, m);      /* c1 */
    HxCopy(r + 2 * k, w1, 2 * k);
    AddAt(r + 4 * k, 2 * t.top, w1 + 2 * k, 2);
    AddAt(r + k, 2 * n - k, wMinus1, m);
    AddAt(r + 3 * k, 2 * n - 3 * k, w2, m);
}

void HxToom3MulN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n, HxLimb* scratch) {
    const Thirds t = Split(n);
    const size_t k = t.k;
    const size_t m = 2 * k + 2;
    HxLimb* w1 = scratch;
    HxLimb* wMinus1 = w1 + m;
    HxLimb* w2 = wMinus1 + m;
    HxLimb* values = w2 + m;
    HxLimb* inner = values + 6 * (k + 1);
    const Values va = {values, values + (k + 1), values + 2 * (k + 1)};
    const int aNegative = Evaluate(a, t, va);
    if (a == b) {
        HxSqr(w1, va.at1, k + 1, inner);
        HxSqr(wMinus1, va.atMinus1, k + 1, inner);
        HxSqr(w2, va.at2, k + 1, inner);
        HxSqr(r, a, k, inner);
        HxSqr(r + 4 * k, a + 2 * k, t.top, inner);
        Interpolate(r, n, w1, wMinus1, w2, 0);
        return;
    }
    const Values vb = {values + 3 * (k + 1), values + 4 * (k + 1), values + 5 * (k + 1)};
    const int bNegative = Evaluate(b, t, vb);
    HxMulN(w1, va.at1, vb.at1, k + 1, inner);
    HxMulN(wMinus1, va.atMinus1, vb.atMinus1, k + 1, inner);
    HxMulN(w2, va.at2, vb.at2, k + 1, inner);
    HxMulN(r, a, b, k, inner);
    HxMulN(r + 4 * k, a + 2 * k, b + 2 * k, t.top, inner);
    Interpolate(r, n, w1, wMinus1, w2, aNegative != bNegative);
}
