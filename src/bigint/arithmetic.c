/* Signed arithmetic. */
#include "record.h"

int mp_abs(const mp_int* a, mp_int* magnitude) {
    if (!HxIsValid(a) || !HxIsValid(magnitude))
        return MP_INVALID_PARAMETER;
    return HxCopySigned(a, 0, magnitude);
}

int mp_neg(const mp_int* a, mp_int* negated) {
    if (!HxIsValid(a) || !HxIsValid(negated))
        return MP_INVALID_PARAMETER;
    return HxCopySigned(a, a->sign == 0, negated);
}

static int AddOrSubtract(const mp_int* a, const mp_int* b, int subtract, mp_int* r) {
    if (!HxIsValid(a) || !HxIsValid(b) || !HxIsValid(r))
        return MP_INVALID_PARAMETER;
    const size_t an = HxLimbs(a);
    const size_t bn = HxLimbs(b);
    const size_t length = HxLarger(an, bn) + 1;
    HxScratch s;
    int code = HxScratchOpen(&s, an + bn + length);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber left = HxLoad(&s, a);
    HxNumber right = HxLoad(&s, b);
    right.negative ^= subtract;
    HxLimb* sum = HxScratchTake(&s, length);
    int negative;
    const size_t n = HxAddSigned(sum, left, right, &negative);
    code = HxStore(r, sum, n, negative);
    HxScratchClose(&s);
    return code;
}

int mp_add(const mp_int* a, const mp_int* b, mp_int* sum) {
    return AddOrSubtract(a, b, 0, sum);
}

int mp_sub(const mp_int* a, const mp_int* b, mp_int* difference) {
    return AddOrSubtract(a, b, 1, difference);
}

int mp_mul(const mp_int* a, const mp_int* b, mp_int* product) {
    if (!HxIsValid(a) || !HxIsValid(b) || !HxIsValid(product))
        return MP_INVALID_PARAMETER;
    if (a == b)
        return mp_sqr(a, product);
    if (HxIsZero(a) || HxIsZero(b))
        return mp_zero(product);
    const size_t an = HxLimbs(a);
    const size_t bn = HxLimbs(b);
    const size_t work = HxMulScratch(an, bn);
    HxScratch s;
    int code = HxScratchOpen(&s, 2 * (an + bn) + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber left = HxLoad(&s, a);
    const HxNumber right = HxLoad(&s, b);
    HxLimb* r = HxScratchTake(&s, an + bn);
    HxMul(r, left.limbs, an, right.limbs, bn, HxScratchTake(&s, work));
    code = HxStore(product, r, an + bn, left.negative != right.negative);
    HxScratchClose(&s);
    return code;
}

int mp_sqr(const mp_int* a, mp_int* square) {
    if (!HxIsValid(a) || !HxIsValid(square))
        return MP_INVALID_PARAMETER;
    const size_t n = HxLimbs(a);
    const size_t work = HxMulNScratch(n);
    HxScratch s;
    int code = HxScratchOpen(&s, 3 * n + work);
    if (code != MP_SUCCESS)
        return code;
    const HxLimb* limbs = HxLoad(&s, a).limbs;
    HxLimb* r = HxScratchTake(&s, 2 * n);
    HxSqr(r, limbs, n, HxScratchTake(&s, work));
    code = HxStore(square, r, 2 * n, 0);
    HxScratchClose(&s);
    return code;
}

/* Stores 0 and the dividend, which is shorter than the divisor. */
static int DivideShort(HxNumber a, mp_int* q, mp_int* r) {
    const HxResult results[] = {{q, {a.limbs, 0, 0}}, {r, a}};
    return HxStoreAll(results, 2);
}

static int DivideLong(HxScratch* s, HxNumber a, HxNumber b, mp_int* q, mp_int* r) {
    const size_t qn = a.n - b.n + 1;
    HxLimb* quotient = HxScratchTake(s, qn);
    HxLimb* rest = HxScratchTake(s, b.n);
    HxLimb* work = HxScratchTake(s, HxDivScratch(a.n, b.n));
    HxDiv(quotient, rest, a.limbs, a.n, b.limbs, b.n, work);
    const HxResult results[] = {{q, {quotient, qn, a.negative != b.negative}},
                                {r, {rest, b.n, a.negative}}};
    return HxStoreAll(results, 2);
}

int mp_div(const mp_int* a, const mp_int* b, mp_int* q, mp_int* r) {
    if (!HxIsValid(a) || !HxIsValid(b) || !HxIsValid(q) || !HxIsValid(r))
        return MP_INVALID_PARAMETER;
    if (HxIsZero(b))
        return MP_OUT_OF_RANGE;
    const size_t an = HxLimbs(a);
    const size_t bn = HxLimbs(b);
    const size_t work = an < bn ? 0 : an + 1 + HxDivScratch(an, bn);
    HxScratch s;
    int code = HxScratchOpen(&s, an + bn + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber dividend = HxLoad(&s, a);
    const HxNumber divisor = HxLoad(&s, b);
    if (dividend.n < divisor.n)
        code = DivideShort(dividend, q, r);
    else
        code = DivideLong(&s, dividend, divisor, q, r);
    HxScratchClose(&s);
    return code;
}

int mp_mod(const mp_int* a, const mp_int* m, mp_int* r) {
    if (!HxIsValid(a) || !HxIsValid(m) || !HxIsValid(r))
        return MP_INVALID_PARAMETER;
    if (mp_cmp_z(m) <= 0)
        return MP_OUT_OF_RANGE;
    const size_t an = HxLimbs(a);
    const size_t mn = HxLimbs(m);
    const size_t work = HxModScratch(an, mn);
    HxScratch s;
    int code = HxScratchOpen(&s, an + 2 * mn + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    const HxNumber modulus = HxLoad(&s, m);
    HxLimb* rest = HxScratchTake(&s, mn);
    HxMod(rest, number, modulus, HxScratchTake(&s, work));
    code = HxStore(r, rest, modulus.n, 0);
    HxScratchClose(&s);
    return code;
}

int mp_sqrt(const mp_int* a, mp_int* root) {
    if (!HxIsValid(a) || !HxIsValid(root))
        return MP_INVALID_PARAMETER;
    if (a->sign != 0)
        return MP_OUT_OF_RANGE;
    const size_t n = HxLimbs(a);
    const size_t rn = (n + 1) / 2;
    const size_t work = HxSqrtScratch(n);
    HxScratch s;
    int code = HxScratchOpen(&s, 2 * n + rn + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    HxLimb* remainder = HxScratchTake(&s, n);
    HxLimb* r = HxScratchTake(&s, rn);
    HxCopy(remainder, number.limbs, number.n);
    HxSqrt(r, remainder, number.n, HxScratchTake(&s, work));
    code = HxStore(root, r, number.n == 0 ? 0 : rn, 0);
    HxScratchClose(&s);
    return code;
}
