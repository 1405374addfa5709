#include "fuzz/IntegerOperations.h"

#include "fuzz/Integer.h"

namespace hx_fuzz {
namespace {

unsigned long Bits(mp_digit digit) {
    return digit % 4096U;
}

mpz_class Power(const mpz_class& base, unsigned long exponent) {
    mpz_class power;
    mpz_pow_ui(power.get_mpz_t(), base.get_mpz_t(), exponent);
    return power;
}

mpz_class Modulo(const mpz_class& a, const mpz_class& m) {
    mpz_class rest;
    mpz_fdiv_r(rest.get_mpz_t(), a.get_mpz_t(), m.get_mpz_t());
    return rest;
}

mpz_class PowerModulo(const Values& v, const mpz_class& exponent) {
    mpz_class power = 1;
    if (exponent != 0)
        mpz_powm(power.get_mpz_t(), v.a.get_mpz_t(), exponent.get_mpz_t(), v.m.get_mpz_t());
    return power;
}

// Limits exponents, keeping their sign, because powers are slow.
mpz_class Limited(const mpz_class& exponent) {
    return exponent % Power(2, 80);
}

bool IsInverse(const Values& v, const mpz_class& inverse) {
    const mpz_class magnitude = v.a < 0 ? mpz_class(-inverse) : inverse;
    return magnitude >= 0 && magnitude < v.m && Modulo(v.a * magnitude - 1, v.m) == 0;
}

int NeedsDigit(const Values& v) {
    return v.digit == 0 ? MP_OUT_OF_RANGE : MP_SUCCESS;
}

int NeedsModulus(const Values& v) {
    return v.m <= 0 ? MP_OUT_OF_RANGE : MP_SUCCESS;
}

int NeedsNonZero(const Values& v) {
    return v.a == 0 && v.b == 0 ? MP_OUT_OF_RANGE : MP_SUCCESS;
}

const Operation operations[] = {
    {[](Records& r) { return mp_add(r.a, r.b, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a + v.b; }},
    {[](Records& r) { return mp_sub(r.a, r.b, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a - v.b; }},
    {[](Records& r) { return mp_mul(r.a, r.b, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a * v.b; }},
    {[](Records& r) { return mp_sqr(r.a, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a * v.a; }},
    {[](Records& r) { return mp_div(r.a, r.b, r.result[0], r.result[1]); },
     [](const Values& v, const Results& r, mp_digit) {
         return r[0] == v.a / v.b && r[1] == v.a % v.b;
     },
     [](const Values& v) -> int { return v.b == 0 ? MP_OUT_OF_RANGE : MP_SUCCESS; }},
    {[](Records& r) { return mp_mod(r.a, r.m, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Modulo(v.a, v.m); },
     NeedsModulus},
    {[](Records& r) { return mp_sqrt(r.a, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == sqrt(v.a); },
     [](const Values& v) -> int { return v.a < 0 ? MP_OUT_OF_RANGE : MP_SUCCESS; }},
    {[](Records& r) { return mp_abs(r.a, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == abs(v.a); }},
    {[](Records& r) { return mp_neg(r.a, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == -v.a; }},
    {[](Records& r) { return mp_copy(r.a, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a; }},
    {[](Records& r) { return mp_add_d(r.a, r.digit, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a + v.digit; }},
    {[](Records& r) { return mp_sub_d(r.a, r.digit, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a - v.digit; }},
    {[](Records& r) { return mp_mul_d(r.a, r.digit, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a * v.digit; }},
    {[](Records& r) { return mp_div_d(r.a, r.digit, r.result[0], &r.rest); },
     [](const Values& v, const Results& r, mp_digit rest) {
         return r[0] == v.a / v.digit && rest == abs(v.a) % v.digit;
     },
     NeedsDigit},
    {[](Records& r) { return mp_mod_d(r.a, r.digit, &r.rest); },
     [](const Values& v, const Results&, mp_digit rest) { return rest == Modulo(v.a, v.digit); },
     NeedsDigit},
    {[](Records& r) { return mp_expt_d(r.a, r.digit % 16, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Power(v.a, v.digit % 16U); }},
    {[](Records& r) {
         const mp_digit digit = r.digit % 16;
         Integer exponent(digit);
         return mp_expt(r.a, exponent.get(), r.result[0]);
     },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Power(v.a, v.digit % 16U); }},
    {[](Records& r) { return mp_mul_2(r.a, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == 2 * v.a; }},
    {[](Records& r) { return mp_div_2(r.a, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == v.a / 2; }},
    {[](Records& r) { return mp_mul_2d(r.a, static_cast<uint32_t>(Bits(r.digit)), r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) {
         return r[0] == v.a * Power(2, Bits(v.digit));
     }},
    {[](Records& r) {
         return mp_div_2d(r.a, static_cast<uint32_t>(Bits(r.digit)), r.result[0], r.result[1]);
     },
     [](const Values& v, const Results& r, mp_digit) {
         const mpz_class power = Power(2, Bits(v.digit));
         return r[0] == v.a / power && r[1] == v.a % power;
     }},
    {[](Records& r) { return mp_2expt(static_cast<uint32_t>(Bits(r.digit)), r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Power(2, Bits(v.digit)); }},
    {[](Records& r) { return mp_addmod(r.a, r.b, r.m, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Modulo(v.a + v.b, v.m); },
     NeedsModulus},
    {[](Records& r) { return mp_submod(r.a, r.b, r.m, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Modulo(v.a - v.b, v.m); },
     NeedsModulus},
    {[](Records& r) { return mp_mulmod(r.a, r.b, r.m, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Modulo(v.a * v.b, v.m); },
     NeedsModulus},
    {[](Records& r) { return mp_sqrmod(r.a, r.m, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == Modulo(v.a * v.a, v.m); },
     NeedsModulus},
    {[](Records& r) {
         Integer exponent(Limited(ValueOf(*r.b)));
         return mp_exptmod(r.a, exponent.get(), r.m, r.result[0]);
     },
     [](const Values& v, const Results& r, mp_digit) {
         return r[0] == PowerModulo(v, Limited(v.b));
     },
     [](const Values& v) -> int { return Limited(v.b) < 0 ? MP_OUT_OF_RANGE : NeedsModulus(v); }},
    {[](Records& r) { return mp_exptmod_d(r.a, r.digit, r.m, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == PowerModulo(v, v.digit); },
     NeedsModulus},
    {[](Records& r) { return mp_invmod(r.a, r.m, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return IsInverse(v, r[0]); },
     [](const Values& v) -> int {
         return v.m <= 0 ? MP_OUT_OF_RANGE : gcd(v.a, v.m) != 1 ? MP_UNDEFINED : MP_SUCCESS;
     }},
    {[](Records& r) { return mp_gcd(r.a, r.b, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == gcd(v.a, v.b); },
     NeedsNonZero},
    {[](Records& r) { return mp_lcm(r.a, r.b, r.result[0]); },
     [](const Values& v, const Results& r, mp_digit) { return r[0] == lcm(v.a, v.b); },
     NeedsNonZero},
    {[](Records& r) { return mp_xgcd(r.a, r.b, r.result[0], r.result[1], r.result[2]); },
     [](const Values& v, const Results& r, mp_digit) {
         return r[0] == gcd(v.a, v.b) && v.a * r[1] + v.b * r[2] == r[0];
     },
     NeedsNonZero},
};

}  // namespace

std::span<const Operation> Operations() {
    return operations;
}

}  // namespace hx_fuzz
