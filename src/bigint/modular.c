/* Arithmetic modulo a positive number. */
#include "record.h"

/* Checks the operands, then the modulus. */
static int CheckModular(const mp_int* a, const mp_int* b, const mp_int* m, const mp_int* r) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(m) || !hx_is_valid(r))
        return MP_INVALID_PARAMETER;
    return mp_cmp_z(m) > 0 ? MP_SUCCESS : MP_OUT_OF_RANGE;
}

static int AddModular(const mp_int* a, const mp_int* b, int subtract, const mp_int* m, mp_int* r) {
    int code = CheckModular(a, b, m, r);
    if (code != MP_SUCCESS)
        return code;
    const size_t an = hx_limbs(a);
    const size_t bn = hx_limbs(b);
    const size_t mn = hx_limbs(m);
    const size_t length = hx_larger(an, bn) + 1;
    const size_t work = hx_mod_scratch(hx_larger(length, mn), mn);
    hx_scratch s;
    code = hx_scratch_open(&s, an + bn + 2 * mn + length + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number left = hx_load(&s, a);
    hx_number right = hx_load(&s, b);
    const hx_number modulus = hx_load(&s, m);
    right.negative ^= subtract;
    hx_limb* rest = hx_scratch_take(&s, mn);
    hx_limb* sum = hx_scratch_take(&s, length);
    hx_number total = {sum, 0, 0};
    total.n = hx_add_signed(sum, left, right, &total.negative);
    hx_mod(rest, total, modulus, hx_scratch_take(&s, work));
    code = hx_store(r, rest, modulus.n, 0);
    hx_scratch_close(&s);
    return code;
}

int mp_addmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r) {
    return AddModular(a, b, 0, m, r);
}

int mp_submod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r) {
    return AddModular(a, b, 1, m, r);
}

int mp_mulmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r) {
    int code = CheckModular(a, b, m, r);
    if (code != MP_SUCCESS)
        return code;
    if (hx_is_zero(a) || hx_is_zero(b))
        return mp_zero(r);
    const size_t an = hx_limbs(a);
    const size_t bn = hx_limbs(b);
    const size_t mn = hx_limbs(m);
    const size_t work =
        hx_larger(hx_mul_scratch(an, bn), hx_mod_scratch(hx_larger(an + bn, mn), mn));
    hx_scratch s;
    code = hx_scratch_open(&s, 2 * (an + bn) + 2 * mn + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number left = hx_load(&s, a);
    const hx_number right = hx_load(&s, b);
    const hx_number modulus = hx_load(&s, m);
    hx_limb* rest = hx_scratch_take(&s, mn);
    hx_limb* product = hx_scratch_take(&s, an + bn);
    hx_limb* inner = hx_scratch_take(&s, work);
    if (a == b)
        hx_sqr(product, left.limbs, an, inner);
    else
        hx_mul(product, left.limbs, an, right.limbs, bn, inner);
    const hx_number whole = {product, hx_normal(product, an + bn), left.negative != right.negative};
    hx_mod(rest, whole, modulus, inner);
    code = hx_store(r, rest, modulus.n, 0);
    hx_scratch_close(&s);
    return code;
}

int mp_sqrmod(const mp_int* a, const mp_int* m, mp_int* r) {
    return mp_mulmod(a, a, m, r);
}

int mp_exptmod(const mp_int* base, const mp_int* exponent, const mp_int* m, mp_int* r) {
    int code = CheckModular(base, exponent, m, r);
    if (code != MP_SUCCESS)
        return code;
    if (exponent->sign != 0)
        return MP_OUT_OF_RANGE;
    if (hx_is_zero(exponent))
        return mp_set(r, 1);
    const size_t bn = hx_limbs(base);
    const size_t en = hx_limbs(exponent);
    const size_t mn = hx_limbs(m);
    const size_t work = hx_larger(hx_mod_scratch(hx_larger(bn, mn), mn), hx_powm_scratch(mn));
    hx_scratch s;
    code = hx_scratch_open(&s, bn + en + 3 * mn + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, base);
    const hx_number power = hx_load(&s, exponent);
    const hx_number modulus = hx_load(&s, m);
    hx_limb* reduced = hx_scratch_take(&s, mn);
    hx_limb* result = hx_scratch_take(&s, mn);
    hx_limb* inner = hx_scratch_take(&s, work);
    hx_mod(reduced, number, modulus, inner);
    hx_powm(result, reduced, power.limbs, power.n, modulus.limbs, modulus.n, inner);
    code = hx_store(r, result, modulus.n, 0);
    hx_scratch_close(&s);
    return code;
}

int mp_exptmod_d(const mp_int* base, mp_digit exponent, const mp_int* m, mp_int* r) {
    hx_small power;
    return mp_exptmod(base, hx_set_small(&power, exponent), m, r);
}
