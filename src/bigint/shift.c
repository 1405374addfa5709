/* Powers of two: shifts of the magnitude that keep the sign. */
#include "record.h"

int mp_mul_2(const mp_int* a, mp_int* product) {
    return mp_mul_2d(a, 1, product);
}

int mp_mul_2d(const mp_int* a, uint32_t bits, mp_int* product) {
    if (!HxIsValid(a) || !HxIsValid(product))
        return MP_INVALID_PARAMETER;
    if (HxIsZero(a))
        return mp_zero(product);
    const size_t low = bits / HX_LIMB_BITS;
    const size_t n = HxLimbs(a);
    HxScratch s;
    int code = HxScratchOpen(&s, low + 2 * n + 1);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    HxLimb* r = HxScratchTake(&s, low + n + 1);
    HxZero(r, low);
    r[low + number.n] =
        HxShiftLeft(r + low, number.limbs, number.n, (unsigned)(bits % HX_LIMB_BITS));
    code = HxStore(product, r, low + number.n + 1, number.negative);
    HxScratchClose(&s);
    return code;
}

/* Cuts a number to its lowest bits and returns its length. */
static size_t CutTo(HxLimb* limbs, size_t n, uint32_t bits) {
    const size_t whole = bits / HX_LIMB_BITS;
    if (n <= whole)
        return n;
    limbs[whole] &= ((HxLimb)1 << (bits % HX_LIMB_BITS)) - 1;
    return whole + 1;
}

/* Stores the quotient and, unless r is null, the remainder. */
static int ShiftRight(const mp_int* a, uint32_t bits, mp_int* q, mp_int* r) {
    const size_t n = HxLimbs(a);
    HxScratch s;
    int code = HxScratchOpen(&s, 3 * n);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    HxLimb* quotient = HxScratchTake(&s, n);
    HxLimb* rest = HxScratchTake(&s, n);
    const size_t low = HxSmaller(bits / HX_LIMB_BITS, number.n);
    HxShiftRight(quotient, number.limbs + low, number.n - low, (unsigned)(bits % HX_LIMB_BITS));
    HxCopy(rest, number.limbs, number.n);
    const size_t length = CutTo(rest, number.n, bits);
    const HxResult results[] = {{q, {quotient, number.n - low, number.negative}},
                                {r, {rest, length, number.negative}}};
    code = HxStoreAll(results, r == NULL ? 1 : 2);
    HxScratchClose(&s);
    return code;
}

int mp_div_2(const mp_int* a, mp_int* q) {
    if (!HxIsValid(a) || !HxIsValid(q))
        return MP_INVALID_PARAMETER;
    return ShiftRight(a, 1, q, NULL);
}

int mp_div_2d(const mp_int* a, uint32_t bits, mp_int* q, mp_int* r) {
    if (!HxIsValid(a) || !HxIsValid(q) || !HxIsValid(r))
        return MP_INVALID_PARAMETER;
    return ShiftRight(a, bits, q, r);
}

int mp_2expt(uint32_t bits, mp_int* power) {
    HxSmall one;
    return mp_mul_2d(HxSetSmall(&one, 1), bits, power);
}
