/* Arithmetic with one digit. */
#include "record.h"

int mp_add_d(const mp_int* a, mp_digit d, mp_int* sum) {
    HxSmall b;
    return mp_add(a, HxSetSmall(&b, d), sum);
}

int mp_sub_d(const mp_int* a, mp_digit d, mp_int* difference) {
    HxSmall b;
    return mp_sub(a, HxSetSmall(&b, d), difference);
}

int mp_mul_d(const mp_int* a, mp_digit d, mp_int* product) {
    if (!HxIsValid(a) || !HxIsValid(product))
        return MP_INVALID_PARAMETER;
    HxScratch s;
    const size_t n = HxLimbs(a);
    int code = HxScratchOpen(&s, 2 * n + 1);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    HxLimb* r = HxScratchTake(&s, n + 1);
    r[number.n] = HxMul1(r, number.limbs, number.n, d, 0);
    code = HxStore(product, r, number.n + 1, number.negative);
    HxScratchClose(&s);
    return code;
}

int mp_div_d(const mp_int* a, mp_digit d, mp_int* q, mp_digit* r) {
    if (!HxIsValid(a) || !HxIsValid(q) || r == NULL)
        return MP_INVALID_PARAMETER;
    if (d == 0)
        return MP_OUT_OF_RANGE;
    HxScratch s;
    const size_t n = HxLimbs(a);
    int code = HxScratchOpen(&s, 2 * n);
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    HxLimb* quotient = HxScratchTake(&s, n);
    const HxLimb rest = HxDiv1(quotient, number.limbs, number.n, d);
    code = HxStore(q, quotient, number.n, number.negative);
    if (code == MP_SUCCESS)
        *r = (mp_digit)rest;
    HxScratchClose(&s);
    return code;
}

/* Works on the digits in place: a remainder and the next digit fit into 32 bits. */
int mp_mod_d(const mp_int* a, mp_digit d, mp_digit* r) {
    if (!HxIsValid(a) || r == NULL)
        return MP_INVALID_PARAMETER;
    if (d == 0)
        return MP_OUT_OF_RANGE;
    uint32_t rest = 0;
    for (uint32_t i = a->used; i > 0; --i)
        rest = ((rest << HX_DIGIT_BITS) | a->dp[i - 1]) % d;
    if (a->sign != 0 && rest != 0)
        rest = d - rest;
    *r = (mp_digit)rest;
    return MP_SUCCESS;
}
