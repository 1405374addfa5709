/* Signed arithmetic. */
#include "record.h"

int hx_copy_signed(const mp_int* a, int negative, mp_int* to) {
    hx_scratch s;
    int code = hx_scratch_open(&s, hx_limbs(a));
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    code = hx_store(to, number.limbs, number.n, negative);
    hx_scratch_close(&s);
    return code;
}

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

size_t hx_add_signed(hx_limb* r, hx_number a, hx_number b, int* negative) {
    if (a.n < b.n || (a.n == b.n && hx_cmp_n(a.limbs, b.limbs, a.n) < 0)) {
        const hx_number kept = a;
        a = b;
        b = kept;
    }
    *negative = a.negative;
    if (a.negative == b.negative)
        r[a.n] = hx_add(r, a.limbs, a.n, b.limbs, b.n);
    else
        r[a.n] = hx_sub(r, a.limbs, a.n, b.limbs, b.n);
    return hx_normal(r, a.n + 1);
}

static int AddOrSubtract(const mp_int* a, const mp_int* b, int subtract, mp_int* r) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(r))
        return MP_INVALID_PARAMETER;
    const size_t an = hx_limbs(a);
    const size_t bn = hx_limbs(b);
    const size_t length = (an > bn ? an : bn) + 1;
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
    if (a->used < b->used) {
        const mp_int* const kept = a;
        a = b;
        b = kept;
    }
    const size_t an = hx_limbs(a);
    const size_t bn = hx_limbs(b);
    hx_scratch s;
    int code = hx_scratch_open(&s, 2 * (an + bn) + hx_mul_scratch(an, bn));
    if (code != MP_SUCCESS)
        return code;
    const hx_number left = hx_load(&s, a);
    const hx_number right = hx_load(&s, b);
    hx_limb* r = hx_scratch_take(&s, an + bn);
    hx_mul(r, left.limbs, an, right.limbs, bn, s.limbs + s.taken);
    code = hx_store(product, r, an + bn, left.negative != right.negative);
    hx_scratch_close(&s);
    return code;
}

int mp_sqr(const mp_int* a, mp_int* square) {
    if (!hx_is_valid(a) || !hx_is_valid(square))
        return MP_INVALID_PARAMETER;
    const size_t n = hx_limbs(a);
    hx_scratch s;
    int code = hx_scratch_open(&s, 3 * n + hx_mul_n_scratch(n));
    if (code != MP_SUCCESS)
        return code;
    const hx_limb* limbs = hx_load(&s, a).limbs;
    hx_limb* r = hx_scratch_take(&s, 2 * n);
    hx_sqr(r, limbs, n, s.limbs + s.taken);
    code = hx_store(square, r, 2 * n, 0);
    hx_scratch_close(&s);
    return code;
}

/* The dividend is shorter: it is the remainder. */
static int DivideShort(hx_number a, mp_int* q, mp_int* r) {
    hx_result results[] = {{q, {a.limbs, 0, 0}, NULL, 0}, {r, a, NULL, 0}};
    return hx_store_all(results, 2);
}

static int DivideLong(hx_scratch* s, hx_number a, hx_number b, mp_int* q, mp_int* r) {
    const size_t qn = a.n - b.n + 1;
    hx_limb* quotient = hx_scratch_take(s, qn);
    hx_limb* rest = hx_scratch_take(s, b.n);
    hx_div(quotient, rest, a.limbs, a.n, b.limbs, b.n, s->limbs + s->taken);
    hx_result results[] = {{q, {quotient, qn, a.negative != b.negative}, NULL, 0},
                           {r, {rest, b.n, a.negative}, NULL, 0}};
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
    hx_scratch s;
    int code = hx_scratch_open(&s, an + 2 * mn + hx_mod_scratch(an, mn));
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    const hx_number modulus = hx_load(&s, m);
    hx_limb* rest = hx_scratch_take(&s, mn);
    hx_mod(rest, number, modulus, s.limbs + s.taken);
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
    hx_scratch s;
    int code = hx_scratch_open(&s, 2 * n + rn + hx_sqrt_scratch(n));
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    hx_limb* used_up = hx_scratch_take(&s, n);
    hx_limb* r = hx_scratch_take(&s, rn);
    hx_copy(used_up, number.limbs, number.n);
    hx_sqrt(r, used_up, number.n, s.limbs + s.taken);
    code = hx_store(root, r, number.n == 0 ? 0 : rn, 0);
    hx_scratch_close(&s);
    return code;
}
