/* Signed arithmetic. */
#include "record.h"

int mp_abs(const mp_int* a, mp_int* magnitude) {
    if (!hx_is_valid(a) || !hx_is_valid(magnitude))
        return MP_INVALID_PARAMETER;
    return hx_copy_signed(a, 0, magnitude);
}

int mp_neg(const mp_int* a, mp_int* negated) {
    if (!hx_is_valid(a) || !hx_is_valid(negated))
        return MP_INVALID_PARAMETER;
    return hx_copy_signed(a, a->sign == 0, negated);
}

static int AddOrSubtract(const mp_int* a, const mp_int* b, int subtract, mp_int* r) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(r))
        return MP_INVALID_PARAMETER;
    const size_t an = hx_limbs(a);
    const size_t bn = hx_limbs(b);
    const size_t length = hx_larger(an, bn) + 1;
    hx_scratch s;
    int code = hx_scratch_open(&s, an + bn + length);
    if (code != MP_SUCCESS)
        return code;
    const hx_number left = hx_load(&s, a);
    hx_number right = hx_load(&s, b);
    right.negative ^= subtract;
    hx_limb* sum = hx_scratch_take(&s, length);
    int negative;
    const size_t n = hx_add_signed(sum, left, right, &negative);
    code = hx_store(r, sum, n, negative);
    hx_scratch_close(&s);
    return code;
}

int mp_add(const mp_int* a, const mp_int* b, mp_int* sum) {
    return AddOrSubtract(a, b, 0, sum);
}

int mp_sub(const mp_int* a, const mp_int* b, mp_int* difference) {
    return AddOrSubtract(a, b, 1, difference);
}

int mp_mul(const mp_int* a, const mp_int* b, mp_int* product) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(product))
        return MP_INVALID_PARAMETER;
    if (a == b)
        return mp_sqr(a, product);
    if (hx_is_zero(a) || hx_is_zero(b))
        return mp_zero(product);
    const size_t an = hx_limbs(a);
    const size_t bn = hx_limbs(b);
    const size_t work = hx_mul_scratch(an, bn);
    hx_scratch s;
    int code = hx_scratch_open(&s, 2 * (an + bn) + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number left = hx_load(&s, a);
    const hx_number right = hx_load(&s, b);
    hx_limb* r = hx_scratch_take(&s, an + bn);
    hx_mul(r, left.limbs, an, right.limbs, bn, hx_scratch_take(&s, work));
    code = hx_store(product, r, an + bn, left.negative != right.negative);
    hx_scratch_close(&s);
    return code;
}

int mp_sqr(const mp_int* a, mp_int* square) {
    if (!hx_is_valid(a) || !hx_is_valid(square))
        return MP_INVALID_PARAMETER;
    const size_t n = hx_limbs(a);
    const size_t work = hx_mul_n_scratch(n);
    hx_scratch s;
    int code = hx_scratch_open(&s, 3 * n + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_limb* limbs = hx_load(&s, a).limbs;
    hx_limb* r = hx_scratch_take(&s, 2 * n);
    hx_sqr(r, limbs, n, hx_scratch_take(&s, work));
    code = hx_store(square, r, 2 * n, 0);
    hx_scratch_close(&s);
    return code;
}

/* Stores 0 and the dividend, which is shorter than the divisor. */
static int DivideShort(hx_number a, mp_int* q, mp_int* r) {
    const hx_result results[] = {{q, {a.limbs, 0, 0}}, {r, a}};
    return hx_store_all(results, 2);
}

static int DivideLong(hx_scratch* s, hx_number a, hx_number b, mp_int* q, mp_int* r) {
    const size_t qn = a.n - b.n + 1;
    hx_limb* quotient = hx_scratch_take(s, qn);
    hx_limb* rest = hx_scratch_take(s, b.n);
    hx_limb* work = hx_scratch_take(s, hx_div_scratch(a.n, b.n));
    hx_div(quotient, rest, a.limbs, a.n, b.limbs, b.n, work);
    const hx_result results[] = {{q, {quotient, qn, a.negative != b.negative}},
                                 {r, {rest, b.n, a.negative}}};
    return hx_store_all(results, 2);
}

int mp_div(const mp_int* a, const mp_int* b, mp_int* q, mp_int* r) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(q) || !hx_is_valid(r))
        return MP_INVALID_PARAMETER;
    if (hx_is_zero(b))
        return MP_OUT_OF_RANGE;
    const size_t an = hx_limbs(a);
    const size_t bn = hx_limbs(b);
    const size_t work = an < bn ? 0 : an + 1 + hx_div_scratch(an, bn);
    hx_scratch s;
    int code = hx_scratch_open(&s, an + bn + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number dividend = hx_load(&s, a);
    const hx_number divisor = hx_load(&s, b);
    if (dividend.n < divisor.n)
        code = DivideShort(dividend, q, r);
    else
        code = DivideLong(&s, dividend, divisor, q, r);
    hx_scratch_close(&s);
    return code;
}

int mp_mod(const mp_int* a, const mp_int* m, mp_int* r) {
    if (!hx_is_valid(a) || !hx_is_valid(m) || !hx_is_valid(r))
        return MP_INVALID_PARAMETER;
    if (mp_cmp_z(m) <= 0)
        return MP_OUT_OF_RANGE;
    const size_t an = hx_limbs(a);
    const size_t mn = hx_limbs(m);
    const size_t work = hx_mod_scratch(an, mn);
    hx_scratch s;
    int code = hx_scratch_open(&s, an + 2 * mn + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    const hx_number modulus = hx_load(&s, m);
    hx_limb* rest = hx_scratch_take(&s, mn);
    hx_mod(rest, number, modulus, hx_scratch_take(&s, work));
    code = hx_store(r, rest, modulus.n, 0);
    hx_scratch_close(&s);
    return code;
}

int mp_sqrt(const mp_int* a, mp_int* root) {
    if (!hx_is_valid(a) || !hx_is_valid(root))
        return MP_INVALID_PARAMETER;
    if (a->sign != 0)
        return MP_OUT_OF_RANGE;
    const size_t n = hx_limbs(a);
    const size_t rn = (n + 1) / 2;
    const size_t work = hx_sqrt_scratch(n);
    hx_scratch s;
    int code = hx_scratch_open(&s, 2 * n + rn + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    hx_limb* remainder = hx_scratch_take(&s, n);
    hx_limb* r = hx_scratch_take(&s, rn);
    hx_copy(remainder, number.limbs, number.n);
    hx_sqrt(r, remainder, number.n, hx_scratch_take(&s, work));
    code = hx_store(root, r, number.n == 0 ? 0 : rn, 0);
    hx_scratch_close(&s);
    return code;
}
