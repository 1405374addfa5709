/* Common divisors and multiples, cofactors, inverses. */
#include "record.h"

/* Limbs that Divisor takes. */
static size_t DivisorScratch(size_t n) {
    return 3 * n + hx_gcd_scratch(n, n);
}

/* Returns the greatest common divisor of two numbers of at most n limbs, a >= b in magnitude, a not
 * 0. Unless x is null, it receives the cofactor of |a| for |b|, stored in `limbs`. */
static hx_number Divisor(hx_scratch* s, hx_number a, hx_number b, size_t n, hx_number* x,
                         hx_limb* limbs) {
    if (b.n == 0) {
        if (x != NULL) {
            limbs[0] = 1;
            *x = (hx_number){limbs, 1, 0};
        }
        return (hx_number){a.limbs, a.n, 0};
    }
    hx_limb* divisor = hx_scratch_take(s, n);
    hx_limb* r0 = hx_scratch_take(s, n);
    hx_limb* r1 = hx_scratch_take(s, n);
    hx_copy(r0, a.limbs, a.n);
    hx_copy(r1, b.limbs, b.n);
    hx_limb* work = hx_scratch_take(s, hx_gcd_scratch(n, n));
    size_t xn = 0;
    int negative = 0;
    const size_t length =
        hx_gcd(divisor, x == NULL ? NULL : limbs, &xn, &negative, r0, a.n, r1, b.n, work);
    if (x != NULL)
        *x = (hx_number){limbs, xn, negative};
    return (hx_number){divisor, length, 0};
}

int mp_gcd(const mp_int* a, const mp_int* b, mp_int* g) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(g))
        return MP_INVALID_PARAMETER;
    if (hx_is_zero(a) && hx_is_zero(b))
        return MP_OUT_OF_RANGE;
    const size_t n = hx_larger(hx_limbs(a), hx_limbs(b));
    hx_scratch s;
    int code = hx_scratch_open(&s, 2 * n + DivisorScratch(n));
    if (code != MP_SUCCESS)
        return code;
    hx_number left = hx_load(&s, a);
    hx_number right = hx_load(&s, b);
    hx_order(&left, &right);
    const hx_number divisor = Divisor(&s, left, right, n, NULL, NULL);
    code = hx_store(g, divisor.limbs, divisor.n, 0);
    hx_scratch_close(&s);
    return code;
}

static size_t MultipleWork(size_t n) {
    return hx_larger(hx_div_scratch_bound(n), hx_mul_scratch_bound(n));
}

/* m = a / divisor * b for a, b other than 0 of at most `size` limbs. */
static int StoreMultiple(hx_scratch* s, hx_number a, hx_number b, hx_number divisor, size_t size,
                         mp_int* m) {
    const size_t qn = a.n - divisor.n + 1;
    hx_limb* quotient = hx_scratch_take(s, qn);
    hx_limb* product = hx_scratch_take(s, qn + b.n);
    hx_limb* work = hx_scratch_take(s, MultipleWork(size));
    hx_div(quotient, NULL, a.limbs, a.n, divisor.limbs, divisor.n, work);
    const size_t n = hx_normal(quotient, qn);
    hx_mul(product, quotient, n, b.limbs, b.n, work);
    return hx_store(m, product, n + b.n, 0);
}

int mp_lcm(const mp_int* a, const mp_int* b, mp_int* m) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(m))
        return MP_INVALID_PARAMETER;
    if (hx_is_zero(a) && hx_is_zero(b))
        return MP_OUT_OF_RANGE;
    if (hx_is_zero(a) || hx_is_zero(b))
        return mp_zero(m);
    const size_t n = hx_larger(hx_limbs(a), hx_limbs(b));
    const size_t work = 3 * n + 2 + MultipleWork(n);
    hx_scratch s;
    int code = hx_scratch_open(&s, 2 * n + DivisorScratch(n) + work);
    if (code != MP_SUCCESS)
        return code;
    hx_number left = hx_load(&s, a);
    hx_number right = hx_load(&s, b);
    hx_order(&left, &right);
    const hx_number divisor = Divisor(&s, left, right, n, NULL, NULL);
    code = StoreMultiple(&s, left, right, divisor, n, m);
    hx_scratch_close(&s);
    return code;
}

static size_t CofactorWork(size_t n) {
    return hx_larger(hx_div_scratch_bound(2 * n + 2), hx_mul_scratch_bound(n));
}

/* Returns the cofactor of b, (g - a * x) / b, or 0 if b is 0; `size` as above. */
static hx_number OtherCofactor(hx_scratch* s, hx_number a, hx_number b, hx_number g, hx_number x,
                               size_t size) {
    if (b.n == 0)
        return (hx_number){b.limbs, 0, 0};
    const size_t n = a.n + x.n;
    hx_limb* product = hx_scratch_take(s, n + 1);
    hx_limb* difference = hx_scratch_take(s, n + 2);
    hx_limb* quotient = hx_scratch_take(s, n + 2);
    hx_limb* work = hx_scratch_take(s, CofactorWork(size));
    if (x.n > 0)
        hx_mul(product, a.limbs, a.n, x.limbs, x.n, work);
    const hx_number taken = {product, x.n > 0 ? hx_normal(product, n) : 0,
                             a.negative == x.negative};
    hx_number rest = {difference, 0, 0};
    rest.n = hx_add_signed(difference, g, taken, &rest.negative);
    if (rest.n < b.n)
        return (hx_number){quotient, 0, 0};
    hx_div(quotient, NULL, rest.limbs, rest.n, b.limbs, b.n, work);
    return (hx_number){quotient, hx_normal(quotient, rest.n - b.n + 1),
                       rest.negative != b.negative};
}

int mp_xgcd(const mp_int* a, const mp_int* b, mp_int* g, mp_int* x, mp_int* y) {
    if (!hx_is_valid(a) || !hx_is_valid(b) || !hx_is_valid(g) || !hx_is_valid(x) || !hx_is_valid(y))
        return MP_INVALID_PARAMETER;
    if (hx_is_zero(a) && hx_is_zero(b))
        return MP_OUT_OF_RANGE;
    const size_t n = hx_larger(hx_limbs(a), hx_limbs(b));
    const size_t work = 6 * n + 8 + CofactorWork(n);
    hx_scratch s;
    int code = hx_scratch_open(&s, 3 * n + 1 + DivisorScratch(n) + work);
    if (code != MP_SUCCESS)
        return code;
    hx_number left = hx_load(&s, a);
    hx_number right = hx_load(&s, b);
    const hx_limb* limbsOfA = left.limbs;
    hx_order(&left, &right);
    hx_limb* limbs = hx_scratch_take(&s, n + 1);
    hx_number first;
    const hx_number divisor = Divisor(&s, left, right, n, &first, limbs);
    first.negative ^= left.negative;
    const hx_number second = OtherCofactor(&s, left, right, divisor, first, n);
    const int exchanged = left.limbs != limbsOfA;
    const hx_result results[] = {
        {g, divisor}, {x, exchanged ? second : first}, {y, exchanged ? first : second}};
    code = hx_store_all(results, 3);
    hx_scratch_close(&s);
    return code;
}

/* r = the inverse of a modulo m, for a below m. Returns whether an inverse exists. */
static int Inverse(hx_scratch* s, hx_limb* r, hx_number a, hx_number m, size_t n, hx_limb* work) {
    hx_limb* limbs = hx_scratch_take(s, n + 1);
    hx_number cofactor;
    /* Divisor returns the cofactor of the larger number: a + m instead of a. */
    hx_limb* raised = hx_scratch_take(s, n + 1);
    raised[m.n] = hx_add(raised, m.limbs, m.n, a.limbs, a.n);
    const hx_number larger = {raised, hx_normal(raised, m.n + 1), 0};
    const hx_number divisor = Divisor(s, larger, m, n + 1, &cofactor, limbs);
    if (divisor.n != 1 || divisor.limbs[0] != 1)
        return 0;
    hx_mod(r, cofactor, m, work);
    return 1;
}

/* Compatibility: callers expect the inverse of the signed value with the sign of the value. */
int mp_invmod(const mp_int* a, const mp_int* m, mp_int* r) {
    if (!hx_is_valid(a) || !hx_is_valid(m) || !hx_is_valid(r))
        return MP_INVALID_PARAMETER;
    if (mp_cmp_z(m) <= 0)
        return MP_OUT_OF_RANGE;
    const size_t an = hx_limbs(a);
    const size_t n = hx_limbs(m);
    const size_t work = hx_larger(hx_mod_scratch(hx_larger(an, n), n), hx_div_scratch_bound(n + 2));
    hx_scratch s;
    int code = hx_scratch_open(&s, an + 5 * n + 2 + DivisorScratch(n + 1) + work);
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    const hx_number modulus = hx_load(&s, m);
    hx_limb* reduced = hx_scratch_take(&s, n);
    hx_limb* inverse = hx_scratch_take(&s, n);
    hx_limb* inner = hx_scratch_take(&s, work);
    hx_mod(reduced, number, modulus, inner);
    const hx_number value = {reduced, hx_normal(reduced, modulus.n), 0};
    code = MP_UNDEFINED;
    if (Inverse(&s, inverse, value, modulus, n, inner))
        code = hx_store(r, inverse, modulus.n, number.negative);
    hx_scratch_close(&s);
    return code;
}
