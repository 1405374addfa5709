/* Powers of two: the magnitude is shifted, the sign stays. */
#include "record.h"

int mp_mul_2(const mp_int* a, mp_int* product) {
    return mp_mul_2d(a, 1, product);
}

int mp_mul_2d(const mp_int* a, uint32_t bits, mp_int* product) {
    if (!hx_is_valid(a) || !hx_is_valid(product))
        return MP_INVALID_PARAMETER;
    if (hx_is_zero(a))
        return mp_zero(product);
    const size_t low = bits / HX_LIMB_BITS;
    const size_t n = hx_limbs(a);
    hx_scratch s;
    int code = hx_scratch_open(&s, low + 2 * n + 1);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    hx_limb* r = hx_scratch_take(&s, low + n + 1);
    hx_zero(r, low);
    r[low + number.n] =
        hx_shift_left(r + low, number.limbs, number.n, (unsigned)(bits % HX_LIMB_BITS));
    code = hx_store(product, r, low + number.n + 1, number.negative);
    hx_scratch_close(&s);
    return code;
}

/* Cuts a number to its lowest bits and returns its length. */
static size_t CutTo(hx_limb* limbs, size_t n, uint32_t bits) {
    const size_t whole = bits / HX_LIMB_BITS;
    if (n <= whole)
        return n;
    limbs[whole] &= ((hx_limb)1 << (bits % HX_LIMB_BITS)) - 1;
    return whole + 1;
}

/* Stores the quotient and, unless r is null, the remainder. */
static int ShiftRight(const mp_int* a, uint32_t bits, mp_int* q, mp_int* r) {
    const size_t n = hx_limbs(a);
    hx_scratch s;
    int code = hx_scratch_open(&s, 3 * n);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    hx_limb* quotient = hx_scratch_take(&s, n);
    hx_limb* rest = hx_scratch_take(&s, n);
    const size_t low = hx_smaller(bits / HX_LIMB_BITS, number.n);
    hx_shift_right(quotient, number.limbs + low, number.n - low, (unsigned)(bits % HX_LIMB_BITS));
    hx_copy(rest, number.limbs, number.n);
    const size_t length = CutTo(rest, number.n, bits);
    const hx_result results[] = {{q, {quotient, number.n - low, number.negative}},
                                 {r, {rest, length, number.negative}}};
    code = hx_store_all(results, r == NULL ? 1 : 2);
    hx_scratch_close(&s);
    return code;
}

int mp_div_2(const mp_int* a, mp_int* q) {
    if (!hx_is_valid(a) || !hx_is_valid(q))
        return MP_INVALID_PARAMETER;
    return ShiftRight(a, 1, q, NULL);
}

int mp_div_2d(const mp_int* a, uint32_t bits, mp_int* q, mp_int* r) {
    if (!hx_is_valid(a) || !hx_is_valid(q) || !hx_is_valid(r))
        return MP_INVALID_PARAMETER;
    return ShiftRight(a, bits, q, r);
}

int mp_2expt(uint32_t bits, mp_int* power) {
    hx_small one;
    return mp_mul_2d(hx_set_small(&one, 1), bits, power);
}
