/* Arithmetic modulo a positive number. */
#include "record.h"

/* What all of these check: the codes for the operands, then for the modulus. */
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
    hx_scratch s;
    code =
        hx_scratch_open(&s, an + bn + 2 * mn + length + hx_mod_scratch(hx_larger(length, mn), mn));
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
    hx_mod(rest, total, modulus, s.limbs + s.taken);
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
    const size_t work = hx_larger(hx_mul_scratch(hx_larger(an, bn), an + bn - hx_larger(an, bn)),
                                  hx_mod_scratch(hx_larger(an + bn, mn), mn));
    hx_scratch s;
    code = hx_scratch_open(&s, 2 * (an + bn) + 2 * mn + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number left = hx_load(&s, a);
    const hx_number right = hx_load(&s, b);
    const hx_number modulus = hx_load(&s, m);
    hx_limb* rest = hx_scratch_take(&s, mn);
    hx_limb* product = hx_scratch_take(&s, an + bn);
    if (a == b)
        hx_sqr(product, left.limbs, an, s.limbs + s.taken);
    else if (an >= bn)
        hx_mul(product, left.limbs, an, right.limbs, bn, s.limbs + s.taken);
    else
        hx_mul(product, right.limbs, bn, left.limbs, an, s.limbs + s.taken);
    const hx_number whole = {product, hx_normal(product, an + bn), left.negative != right.negative};
    hx_mod(rest, whole, modulus, s.limbs + s.taken);
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
    hx_scratch s;
    code = hx_scratch_open(
        &s,
        bn + en + 3 * mn + hx_larger(hx_mod_scratch(hx_larger(bn, mn), mn), hx_powm_scratch(mn)));
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, base);
    const hx_number power = hx_load(&s, exponent);
    const hx_number modulus = hx_load(&s, m);
    hx_limb* reduced = hx_scratch_take(&s, mn);
    hx_limb* result = hx_scratch_take(&s, mn);
    hx_mod(reduced, number, modulus, s.limbs + s.taken);
    hx_powm(result, reduced, power.limbs, power.n, modulus.limbs, modulus.n, s.limbs + s.taken);
    code = hx_store(r, result, modulus.n, 0);
    hx_scratch_close(&s);
    return code;
}

int mp_exptmod_d(const mp_int* base, mp_digit exponent, const mp_int* m, mp_int* r) {
    mp_digit digit = exponent;
    const mp_int power = {.sign = 0, .alloc = 1, .used = 1, .dp = &digit};
    return mp_exptmod(base, &power, m, r);
}
