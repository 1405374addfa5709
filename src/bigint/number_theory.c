/* Common divisors and multiples, cofactors, inverses. */
#include "record.h"

/* Limbs that Divisor takes. */
static size_t DivisorScratch(size_t n) {
    return 3 * n + HxGcdScratch(n, n);
}

/* Returns the greatest common divisor of two numbers of at most n limbs, a >= b in magnitude, a not
 * 0. Unless x is null, it receives the cofactor of |a| for |b|, stored in `limbs`. */
static HxNumber Divisor(HxScratch* s, HxNumber a, HxNumber b, size_t n, HxNumber* x,
                        HxLimb* limbs) {
    if (b.n == 0) {
        if (x != NULL) {
            limbs[0] = 1;
            *x = (HxNumber){limbs, 1, 0};
        }
        return (HxNumber){a.limbs, a.n, 0};
    }
    HxLimb* divisor = HxScratchTake(s, n);
    HxLimb* r0 = HxScratchTake(s, n);
    HxLimb* r1 = HxScratchTake(s, n);
    HxCopy(r0, a.limbs, a.n);
    HxCopy(r1, b.limbs, b.n);
    HxLimb* work = HxScratchTake(s, HxGcdScratch(n, n));
    size_t xn = 0;
    int negative = 0;
    const size_t length =
        HxGcd(divisor, x == NULL ? NULL : limbs, &xn, &negative, r0, a.n, r1, b.n, work);
    if (x != NULL)
        *x = (HxNumber){limbs, xn, negative};
    return (HxNumber){divisor, length, 0};
}

int mp_gcd(const mp_int* a, const mp_int* b, mp_int* g) {
    if (!HxIsValid(a) || !HxIsValid(b) || !HxIsValid(g))
        return MP_INVALID_PARAMETER;
    if (HxIsZero(a) && HxIsZero(b))
        return MP_OUT_OF_RANGE;
    const size_t n = HxLarger(HxLimbs(a), HxLimbs(b));
    HxScratch s;
    int code = HxScratchOpen(&s, 2 * n + DivisorScratch(n));
    if (code != MP_SUCCESS)
        return code;
    HxNumber left = HxLoad(&s, a);
    HxNumber right = HxLoad(&s, b);
    HxOrder(&left, &right);
    const HxNumber divisor = Divisor(&s, left, right, n, NULL, NULL);
    code = HxStore(g, divisor.limbs, divisor.n, 0);
    HxScratchClose(&s);
    return code;
}

static size_t MultipleWork(size_t n) {
    return HxLarger(HxDivScratchBound(n), HxMulScratchBound(n));
}

/* m = a / divisor * b for a, b other than 0 of at most `size` limbs. */
static int StoreMultiple(HxScratch* s, HxNumber a, HxNumber b, HxNumber divisor, size_t size,
                         mp_int* m) {
    const size_t qn = a.n - divisor.n + 1;
    HxLimb* quotient = HxScratchTake(s, qn);
    HxLimb* product = HxScratchTake(s, qn + b.n);
    HxLimb* work = HxScratchTake(s, MultipleWork(size));
    HxDiv(quotient, NULL, a.limbs, a.n, divisor.limbs, divisor.n, work);
    const size_t n = HxNormal(quotient, qn);
    HxMul(product, quotient, n, b.limbs, b.n, work);
    return HxStore(m, product, n + b.n, 0);
}

int mp_lcm(const mp_int* a, const mp_int* b, mp_int* m) {
    if (!HxIsValid(a) || !HxIsValid(b) || !HxIsValid(m))
        return MP_INVALID_PARAMETER;
    if (HxIsZero(a) && HxIsZero(b))
        return MP_OUT_OF_RANGE;
    if (HxIsZero(a) || HxIsZero(b))
        return mp_zero(m);
    const size_t n = HxLarger(HxLimbs(a), HxLimbs(b));
    const size_t work = 3 * n + 2 + MultipleWork(n);
    HxScratch s;
    int code = HxScratchOpen(&s, 2 * n + DivisorScratch(n) + work);
    if (code != MP_SUCCESS)
        return code;
    HxNumber left = HxLoad(&s, a);
    HxNumber right = HxLoad(&s, b);
    HxOrder(&left, &right);
    const HxNumber divisor = Divisor(&s, left, right, n, NULL, NULL);
    code = StoreMultiple(&s, left, right, divisor, n, m);
    HxScratchClose(&s);
    return code;
}

static size_t CofactorWork(size_t n) {
    return HxLarger(HxDivScratchBound(2 * n + 2), HxMulScratchBound(n));
}

/* Returns the cofactor of b, (g - a * x) / b, or 0 if b is 0; `size` as above. */
static HxNumber OtherCofactor(HxScratch* s, HxNumber a, HxNumber b, HxNumber g, HxNumber x,
                              size_t size) {
    if (b.n == 0)
        return (HxNumber){b.limbs, 0, 0};
    const size_t n = a.n + x.n;
    HxLimb* product = HxScratchTake(s, n + 1);
    HxLimb* difference = HxScratchTake(s, n + 2);
    HxLimb* quotient = HxScratchTake(s, n + 2);
    HxLimb* work = HxScratchTake(s, CofactorWork(size));
    if (x.n > 0)
        HxMul(product, a.limbs, a.n, x.limbs, x.n, work);
    const HxNumber taken = {product, x.n > 0 ? HxNormal(product, n) : 0, a.negative == x.negative};
    HxNumber rest = {difference, 0, 0};
    rest.n = HxAddSigned(difference, g, taken, &rest.negative);
    if (rest.n < b.n)
        return (HxNumber){quotient, 0, 0};
    HxDiv(quotient, NULL, rest.limbs, rest.n, b.limbs, b.n, work);
    return (HxNumber){quotient, HxNormal(quotient, rest.n - b.n + 1), rest.negative != b.negative};
}

int mp_xgcd(const mp_int* a, const mp_int* b, mp_int* g, mp_int* x, mp_int* y) {
    if (!HxIsValid(a) || !HxIsValid(b) || !HxIsValid(g) || !HxIsValid(x) || !HxIsValid(y))
        return MP_INVALID_PARAMETER;
    if (HxIsZero(a) && HxIsZero(b))
        return MP_OUT_OF_RANGE;
    const size_t n = HxLarger(HxLimbs(a), HxLimbs(b));
    const size_t work = 6 * n + 8 + CofactorWork(n);
    HxScratch s;
    int code = HxScratchOpen(&s, 3 * n + 1 + DivisorScratch(n) + work);
    if (code != MP_SUCCESS)
        return code;
    HxNumber left = HxLoad(&s, a);
    HxNumber right = HxLoad(&s, b);
    const HxLimb* limbsOfA = left.limbs;
    HxOrder(&left, &right);
    HxLimb* limbs = HxScratchTake(&s, n + 1);
    HxNumber first;
    const HxNumber divisor = Divisor(&s, left, right, n, &first, limbs);
    first.negative ^= left.negative;
    const HxNumber second = OtherCofactor(&s, left, right, divisor, first, n);
    const int exchanged = left.limbs != limbsOfA;
    const HxResult results[] = {
        {g, divisor}, {x, exchanged ? second : first}, {y, exchanged ? first : second}};
    code = HxStoreAll(results, 3);
    HxScratchClose(&s);
    return code;
}

/* r = the inverse of a modulo m, for a below m. Returns whether an inverse exists. */
static int Inverse(HxScratch* s, HxLimb* r, HxNumber a, HxNumber m, size_t n, HxLimb* work) {
    HxLimb* limbs = HxScratchTake(s, n + 1);
    HxNumber cofactor;
    /* Divisor returns the cofactor of the larger number: a + m instead of a. */
    HxLimb* raised = HxScratchTake(s, n + 1);
    raised[m.n] = HxAdd(raised, m.limbs, m.n, a.limbs, a.n);
    const HxNumber larger = {raised, HxNormal(raised, m.n + 1), 0};
    const HxNumber divisor = Divisor(s, larger, m, n + 1, &cofactor, limbs);
    if (divisor.n != 1 || divisor.limbs[0] != 1)
        return 0;
    HxMod(r, cofactor, m, work);
    return 1;
}

/* Compatibility: callers expect the inverse of the signed value with the sign of the value. */
int mp_invmod(const mp_int* a, const mp_int* m, mp_int* r) {
    if (!HxIsValid(a) || !HxIsValid(m) || !HxIsValid(r))
        return MP_INVALID_PARAMETER;
    if (mp_cmp_z(m) <= 0)
        return MP_OUT_OF_RANGE;
    const size_t an = HxLimbs(a);
    const size_t n = HxLimbs(m);
    const size_t work = HxLarger(HxModScratch(HxLarger(an, n), n), HxDivScratchBound(n + 2));
    HxScratch s;
    int code = HxScratchOpen(&s, an + 5 * n + 2 + DivisorScratch(n + 1) + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    const HxNumber modulus = HxLoad(&s, m);
    HxLimb* reduced = HxScratchTake(&s, n);
    HxLimb* inverse = HxScratchTake(&s, n);
    HxLimb* inner = HxScratchTake(&s, work);
    HxMod(reduced, number, modulus, inner);
    const HxNumber value = {reduced, HxNormal(reduced, modulus.n), 0};
    code = MP_UNDEFINED;
    if (Inverse(&s, inverse, value, modulus, n, inner))
        code = HxStore(r, inverse, modulus.n, number.negative);
    HxScratchClose(&s);
    return code;
}
