/* Comparisons of records, digit by digit. */
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

int mp_cmp(const mp_int* a, const mp_int* b) {
    if (!HxIsValid(a) || !HxIsValid(b))
        return MP_INVALID_PARAMETER;
    if ((a->sign != 0) != (b->sign != 0))
        return a->sign != 0 ? -1 : 1;
    return a->sign != 0 ? CompareMagnitudes(b, a) : CompareMagnitudes(a, b);
}

int mp_cmp_mag(const mp_int* a, const mp_int* b) {
    if (!HxIsValid(a) || !HxIsValid(b))
        return MP_INVALID_PARAMETER;
    return CompareMagnitudes(a, b);
}

int mp_cmp_int(const mp_int* a, long value) {
    HxSmall b;
    return mp_cmp(a, HxSetSmall(&b, value));
}

int mp_cmp_d(const mp_int* a, mp_digit d) {
    return mp_cmp_int(a, d);
}

int mp_cmp_z(const mp_int* a) {
    if (!HxIsValid(a))
        return MP_INVALID_PARAMETER;
    if (a->sign != 0)
        return -1;
    return HxIsZero(a) ? 0 : 1;
}

int mp_isodd(const mp_int* a) {
    if (!HxIsValid(a))
        return MP_INVALID_PARAMETER;
    return (a->dp[0] & 1) != 0 ? MP_YES : MP_NO;
}

int mp_iseven(const mp_int* a) {
    if (!HxIsValid(a))
        return MP_INVALID_PARAMETER;
    return (a->dp[0] & 1) == 0 ? MP_YES : MP_NO;
}
