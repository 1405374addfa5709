/* Powers of whole numbers. */
#include "record.h"

/* A result of more bits than this could not be allocated as a record. */
static const uint64_t MostBits = (uint64_t)UINT32_MAX * HX_DIGIT_BITS;

/* base^exponent by squarings from the exponent's top bit on, in one of two buffers of `size` limbs
 * and their half again as work memory. */
static int Power(hx_scratch* s, hx_number base, uint64_t exponent, size_t size, mp_int* power) {
    hx_limb* from = hx_scratch_take(s, size);
    hx_limb* to = hx_scratch_take(s, size);
    hx_limb* work = s->limbs + s->taken;
    size_t n = base.n;
    hx_copy(from, base.limbs, n);
    for (unsigned bit = hx_bit_length(exponent) - 1; bit > 0; --bit) {
        hx_sqr(to, from, n, work);
        n = hx_normal(to, 2 * n);
        hx_limb* const kept = from;
        from = to;
        to = kept;
        if ((exponent >> (bit - 1) & 1) == 0)
            continue;
        /* The power so far is not shorter than the base. */
        hx_mul(to, from, n, base.limbs, base.n, work);
        n = hx_normal(to, n + base.n);
        to = from;
        from = kept;
    }
    return hx_store(power, from, n, base.negative && (exponent & 1) != 0);
}

static int PowerOfLong(const mp_int* a, uint64_t exponent, mp_int* power) {
    const size_t n = hx_limbs(a);
    const uint64_t bits =
        (uint64_t)(a->used - 1) * HX_DIGIT_BITS + hx_bit_length(a->dp[a->used - 1]);
    if (exponent > MostBits / (bits - 1))
        return MP_OUT_OF_MEMORY;
    /* A product has a limb more than its bits need while its top is not yet known to be zero. */
    const size_t size = hx_limbs_of_bits(bits * exponent) + n + 2;
    const size_t work = hx_mul_scratch_bound(size / 2 + 1);
    hx_scratch s;
    int code = hx_scratch_open(&s, n + 2 * size + work);
    if (code != MP_SUCCESS)
        return code;
    code = Power(&s, hx_load(&s, a), exponent, size, power);
    hx_scratch_close(&s);
    return code;
}

/* 0, 1 and -1 to the power of a positive exponent. */
static int PowerOfUnit(const mp_int* a, int odd, mp_int* power) {
    const hx_limb limb = a->dp[0];
    return hx_store(power, &limb, 1, a->sign != 0 && odd);
}

int mp_expt(const mp_int* a, const mp_int* exponent, mp_int* power) {
    if (!hx_is_valid(a) || !hx_is_valid(exponent) || !hx_is_valid(power))
        return MP_INVALID_PARAMETER;
    if (exponent->sign != 0)
        return MP_OUT_OF_RANGE;
    if (hx_is_zero(exponent))
        return mp_set(power, 1);
    if (a->used == 1 && a->dp[0] <= 1)
        return PowerOfUnit(a, (exponent->dp[0] & 1) != 0, power);
    if (exponent->used > HX_LIMB_DIGITS)
        return MP_OUT_OF_MEMORY;
    hx_limb value;
    hx_limbs_from_digits(&value, exponent->dp, exponent->used);
    return PowerOfLong(a, value, power);
}
