/* Arithmetic with one digit. */
#include "record.h"

int mp_add_d(const mp_int* a, mp_digit d, mp_int* sum) {
    hx_small b;
    return mp_add(a, hx_set_small(&b, d), sum);
}

int mp_sub_d(const mp_int* a, mp_digit d, mp_int* difference) {
    hx_small b;
    return mp_sub(a, hx_set_small(&b, d), difference);
}

int mp_mul_d(const mp_int* a, mp_digit d, mp_int* product) {
    if (!hx_is_valid(a) || !hx_is_valid(product))
        return MP_INVALID_PARAMETER;
    hx_scratch s;
    const size_t n = hx_limbs(a);
    int code = hx_scratch_open(&s, 2 * n + 1);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    hx_limb* r = hx_scratch_take(&s, n + 1);
    r[number.n] = hx_mul_1(r, number.limbs, number.n, d, 0);
    code = hx_store(product, r, number.n + 1, number.negative);
    hx_scratch_close(&s);
    return code;
}

int mp_div_d(const mp_int* a, mp_digit d, mp_int* q, mp_digit* r) {
    if (!hx_is_valid(a) || !hx_is_valid(q) || r == NULL)
        return MP_INVALID_PARAMETER;
    if (d == 0)
        return MP_OUT_OF_RANGE;
    hx_scratch s;
    const size_t n = hx_limbs(a);
    int code = hx_scratch_open(&s, 2 * n);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    hx_limb* quotient = hx_scratch_take(&s, n);
    const hx_limb rest = hx_div_1(quotient, number.limbs, number.n, d);
    code = hx_store(q, quotient, number.n, number.negative);
    if (code == MP_SUCCESS)
        *r = (mp_digit)rest;
    hx_scratch_close(&s);
    return code;
}

/* Works on the digits in place: a remainder and the next digit fit into 32 bits. */
int mp_mod_d(const mp_int* a, mp_digit d, mp_digit* r) {
    if (!hx_is_valid(a) || r == NULL)
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
