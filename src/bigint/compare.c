/* Comparisons, on the digits as they stand. */
#include "record.h"

static int CompareMagnitudes(const mp_int* a, const mp_int* b) {
    if (a->used != b->used)
        return a->used > b->used ? 1 : -1;
    for (uint32_t i = a->used; i > 0; --i) {
        if (a->dp[i - 1] != b->dp[i - 1])
            return a->dp[i - 1] > b->dp[i - 1] ? 1 : -1;
    }
    return 0;
}

static int CompareSigned(const mp_int* a, const mp_int* b) {
    if ((a->sign != 0) != (b->sign != 0))
        return a->sign != 0 ? -1 : 1;
    return a->sign != 0 ? CompareMagnitudes(b, a) : CompareMagnitudes(a, b);
}

int mp_cmp_z(const mp_int* a) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    if (a->sign != 0)
        return -1;
    return hx_is_zero(a) ? 0 : 1;
}

int mp_cmp_d(const mp_int* a, mp_digit d) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    const mp_int b = {.sign = 0, .alloc = 1, .used = 1, .dp = &d};
    return CompareSigned(a, &b);
}

int mp_cmp(const mp_int* a, const mp_int* b) {
    if (!hx_is_valid(a) || !hx_is_valid(b))
        return MP_INVALID_PARAMETER;
    return CompareSigned(a, b);
}

int mp_cmp_mag(const mp_int* a, const mp_int* b) {
    if (!hx_is_valid(a) || !hx_is_valid(b))
        return MP_INVALID_PARAMETER;
    return CompareMagnitudes(a, b);
}

int mp_cmp_int(const mp_int* a, long value) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    mp_digit digits[HX_LIMB_DIGITS];
    const hx_limb limb = hx_magnitude(value);
    hx_limbs_to_digits(digits, HX_LIMB_DIGITS, &limb);
    uint32_t used = HX_LIMB_DIGITS;
    while (used > 1 && digits[used - 1] == 0)
        --used;
    const mp_int b = {.sign = value < 0, .alloc = used, .used = used, .dp = digits};
    return CompareSigned(a, &b);
}

int mp_isodd(const mp_int* a) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    return (a->dp[0] & 1) != 0 ? MP_YES : MP_NO;
}

int mp_iseven(const mp_int* a) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    return (a->dp[0] & 1) == 0 ? MP_YES : MP_NO;
}
