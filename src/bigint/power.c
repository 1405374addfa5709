/* Integer powers. */
#include "record.h"

/* The bits of the largest record. */
static const uint64_t mostBits = (uint64_t)UINT32_MAX * HX_DIGIT_BITS;

static size_t WorkFor(size_t size) {
    return HxMulScratchBound(size / 2 + 1);
}

/* power = base^exponent by squarings from the exponent's top bit down, in two buffers of `size`
 * limbs that exchange their roles. */
static int Power(HxScratch* s, HxNumber base, uint64_t exponent, size_t size, mp_int* power) {
    HxLimb* from = HxScratchTake(s, size);
    HxLimb* to = HxScratchTake(s, size);
    HxLimb* work = HxScratchTake(s, WorkFor(size));
    size_t n = base.n;
    HxCopy(from, base.limbs, n);
    for (unsigned bit = HxBitLength(exponent) - 1; bit > 0; --bit) {
        HxSqr(to, from, n, work);
        n = HxNormal(to, 2 * n);
        HxLimb* const spare = from;
        from = to;
        to = spare;
        if ((exponent >> (bit - 1) & 1) == 0)
            continue;
        HxMul(to, from, n, base.limbs, base.n, work);
        n = HxNormal(to, n + base.n);
        to = from;
        from = spare;
    }
    return HxStore(power, from, n, base.negative && (exponent & 1) != 0);
}

static int PowerOfLong(const mp_int* a, uint64_t exponent, mp_int* power) {
    const size_t n = HxLimbs(a);
    const uint64_t bits = HxRecordBits(a);
    if (exponent > mostBits / (bits - 1))
        return MP_OUT_OF_MEMORY;
    /* A product is written with a limb more than its bits may need. */
    const size_t size = HxLimbsOfBits(bits * exponent) + n + 2;
    HxScratch s;
    int code = HxScratchOpen(&s, n + 2 * size + WorkFor(size));
    if (code != MP_SUCCESS)
        return code;
    code = Power(&s, HxLoad(&s, a), exponent, size, power);
    HxScratchClose(&s);
    return code;
}

/* Stores 0, 1 or -1 to the power of a positive exponent. */
static int PowerOfUnit(const mp_int* a, int odd, mp_int* power) {
    return HxCopySigned(a, a->sign != 0 && odd, power);
}

int mp_expt(const mp_int* a, const mp_int* exponent, mp_int* power) {
    if (!HxIsValid(a) || !HxIsValid(exponent) || !HxIsValid(power))
        return MP_INVALID_PARAMETER;
    if (exponent->sign != 0)
        return MP_OUT_OF_RANGE;
    if (HxIsZero(exponent))
        return mp_set(power, 1);
    if (a->used == 1 && a->dp[0] <= 1)
        return PowerOfUnit(a, (exponent->dp[0] & 1) != 0, power);
    if (exponent->used > HX_LIMB_DIGITS)
        return MP_OUT_OF_MEMORY;
    return PowerOfLong(a, HxLowestLimb(exponent), power);
}

int mp_expt_d(const mp_int* a, mp_digit d, mp_int* power) {
    HxSmall exponent;
    return mp_expt(a, HxSetSmall(&exponent, d), power);
}
