/* Arithmetic modulo a positive number. */
#include "record.h"

/* Checks the operands, then the modulus. */
static int CheckModular(const mp_int* a, const mp_int* b, const mp_int* m, const mp_int* r) {
    if (!HxIsValid(a) || !HxIsValid(b) || !HxIsValid(m) || !HxIsValid(r))
        return MP_INVALID_PARAMETER;
    return mp_cmp_z(m) > 0 ? MP_SUCCESS : MP_OUT_OF_RANGE;
}

static int AddModular(const mp_int* a, const mp_int* b, int subtract, const mp_int* m, mp_int* r) {
    int code = CheckModular(a, b, m, r);
    if (code != MP_SUCCESS)
        return code;
    const size_t an = HxLimbs(a);
    const size_t bn = HxLimbs(b);
    const size_t mn = HxLimbs(m);
    const size_t length = HxLarger(an, bn) + 1;
    const size_t work = HxModScratch(HxLarger(length, mn), mn);
    HxScratch s;
    code = HxScratchOpen(&s, an + bn + 2 * mn + length + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber left = HxLoad(&s, a);
    HxNumber right = HxLoad(&s, b);
    const HxNumber modulus = HxLoad(&s, m);
    right.negative ^= subtract;
    HxLimb* rest = HxScratchTake(&s, mn);
    HxLimb* sum = HxScratchTake(&s, length);
    HxNumber total = {sum, 0, 0};
    total.n = HxAddSigned(sum, left, right, &total.negative);
    HxMod(rest, total, modulus, HxScratchTake(&s, work));
    code = HxStore(r, rest, modulus.n, 0);
    HxScratchClose(&s);
    return code;
}

int mp_addmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r) {
    return AddModular(a, b, 0, m, r);
}

int mp_submod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r) {
    return AddModular(a, b, 1, m, r);
}

int mp_mulmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r) {
    int code = CheckModular(a, b, m, r);
    if (code != MP_SUCCESS)
        return code;
    if (HxIsZero(a) || HxIsZero(b))
        return mp_zero(r);
    const size_t an = HxLimbs(a);
    const size_t bn = HxLimbs(b);
    const size_t mn = HxLimbs(m);
    const size_t work = HxLarger(HxMulScratch(an, bn), HxModScratch(HxLarger(an + bn, mn), mn));
    HxScratch s;
    code = HxScratchOpen(&s, 2 * (an + bn) + 2 * mn + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber left = HxLoad(&s, a);
    const HxNumber right = HxLoad(&s, b);
    const HxNumber modulus = HxLoad(&s, m);
    HxLimb* rest = HxScratchTake(&s, mn);
    HxLimb* product = HxScratchTake(&s, an + bn);
    HxLimb* inner = HxScratchTake(&s, work);
    if (a == b)
        HxSqr(product, left.limbs, an, inner);
    else
        HxMul(product, left.limbs, an, right.limbs, bn, inner);
    const HxNumber whole = {product, HxNormal(product, an + bn), left.negative != right.negative};
    HxMod(rest, whole, modulus, inner);
    code = HxStore(r, rest, modulus.n, 0);
    HxScratchClose(&s);
    return code;
}

int mp_sqrmod(const mp_int* a, const mp_int* m, mp_int* r) {
    return mp_mulmod(a, a, m, r);
}

int mp_exptmod(const mp_int* base, const mp_int* exponent, const mp_int* m, mp_int* r) {
    int code = CheckModular(base, exponent, m, r);
    if (code != MP_SUCCESS)
        return code;
    if (exponent->sign != 0)
        return MP_OUT_OF_RANGE;
    if (HxIsZero(exponent))
        return mp_set(r, 1);
    const size_t bn = HxLimbs(base);
    const size_t en = HxLimbs(exponent);
    const size_t mn = HxLimbs(m);
    const size_t work = HxLarger(HxModScratch(HxLarger(bn, mn), mn), HxPowmScratch(mn));
    HxScratch s;
    code = HxScratchOpen(&s, bn + en + 3 * mn + work);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, base);
    const HxNumber power = HxLoad(&s, exponent);
    const HxNumber modulus = HxLoad(&s, m);
    HxLimb* reduced = HxScratchTake(&s, mn);
    HxLimb* result = HxScratchTake(&s, mn);
    HxLimb* inner = HxScratchTake(&s, work);
    HxMod(reduced, number, modulus, inner);
    HxPowm(result, reduced, power.limbs, power.n, modulus.limbs, modulus.n, inner);
    code = HxStore(r, result, modulus.n, 0);
    HxScratchClose(&s);
    return code;
}

int mp_exptmod_d(const mp_int* base, mp_digit exponent, const mp_int* m, mp_int* r) {
    HxSmall power;
    return mp_exptmod(base, HxSetSmall(&power, exponent), m, r);
}
