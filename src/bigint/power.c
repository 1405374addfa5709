/* Powers of whole numbers. */
#include "record.h"

/* The bits of the largest record. */
static const uint64_t mostBits = (uint64_t)UINT32_MAX * HX_DIGIT_BITS;

static size_t WorkFor(size_t size) {
    return hx_mul_scratch_bound(size / 2 + 1);
}

/* power = base^exponent by squarings from the exponent's top bit down, in two buffers of `size`
 * limbs that exchange their roles. */
static int Power(hx_scratch* s, hx_number base, uint64_t exponent, size_t size, mp_int* power) {
    hx_limb* from = hx_scratch_take(s, size);
    hx_limb* to = hx_scratch_take(s, size);
    hx_limb* work = hx_scratch_take(s, WorkFor(size));
    size_t n = base.n;
    hx_copy(from, base.limbs, n);
    for (unsigned bit = hx_bit_length(exponent) - 1; bit > 0; --bit) {
        hx_sqr(to, from, n, work);
        n = hx_normal(to, 2 * n);
        hx_limb* const spare = from;
        from = to;
        to = spare;
        if ((exponent >> (bit - 1) & 1) == 0)
            continue;
        hx_mul(to, from, n, base.limbs, base.n, work);
        n = hx_normal(to, n + base.n);
        to = from;
        from = spare;
    }
    return hx_store(power, from, n, base.negative && (exponent & 1) != 0);
}

static int PowerOfLong(const mp_int* a, uint64_t exponent, mp_int* power) {
    const size_t n = hx_limbs(a);
    const uint64_t bits = hx_record_bits(a);
    if (exponent > mostBits / (bits - 1))
        return MP_OUT_OF_MEMORY;
    /* A product is written with a limb more than its bits may need. */
    const size_t size = hx_limbs_of_bits(bits * exponent) + n + 2;
    hx_scratch s;
    int code = hx_scratch_open(&s, n + 2 * size + WorkFor(size));
    if (code != MP_SUCCESS)
        return code;
    code = Power(&s, hx_load(&s, a), exponent, size, power);
    hx_scratch_close(&s);
    return code;
}

/* 0, 1 and -1 to the power of a positive exponent. */
static int PowerOfUnit(const mp_int* a, int odd, mp_int* power) {
    return hx_copy_signed(a, a->sign != 0 && odd, power);
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
    return PowerOfLong(a, hx_lowest_limb(exponent), power);
}

int mp_expt_d(const mp_int* a, mp_digit d, mp_int* power) {
    hx_small exponent;
    return mp_expt(a, hx_set_small(&exponent, d), power);
}
