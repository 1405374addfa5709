/* Common divisors and multiples, and what follows from the cofactors. */
#include "record.h"

static void Order(hx_number* a, hx_number* b) {
    if (hx_cmp(a->limbs, a->n, b->limbs, b->n) < 0) {
        const hx_number kept = *a;
        *a = *b;
        *b = kept;
    }
}

/* Limbs that Divisor takes. */
static size_t DivisorScratch(size_t n) {
    return 3 * n + hx_gcd_scratch(n, n);
}

/* The greatest common divisor of two numbers of at most n limbs, not both 0; where x is not null,
 * it gets the cofactor of a, for a >= b in magnitude, disregarding the signs. */
static hx_number Divisor(hx_scratch* s, hx_number a, hx_number b, size_t n, hx_number* x,
                         hx_limb* x_limbs) {
    if (b.n == 0) {
        if (x != NULL) {
            x_limbs[0] = 1;
            *x = (hx_number){x_limbs, 1, 0};
        }
        return (hx_number){a.limbs, a.n, 0};
    }
    hx_limb* divisor = hx_scratch_take(s, n);
    hx_limb* r0 = hx_scratch_take(s, n);
    hx_limb* r1 = hx_scratch_take(s, n);
    hx_copy(r0, a.limbs, a.n);
    hx_copy(r1, b.limbs, b.n);
    size_t xn = 0;
    int negative = 0;
    const size_t length = hx_gcd(divisor, x == NULL ? NULL : x_limbs, &xn, &negative, r0, a.n, r1,
                                 b.n, s->limbs + s->taken);
    if (x != NULL)
        *x = (hx_number){x_limbs, xn, negative};
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
    Order(&left, &right);
    const hx_number divisor = Divisor(&s, left, right, n, NULL, NULL);
    code = hx_store(g, divisor.limbs, divisor.n, 0);
    hx_scratch_close(&s);
    return code;
}

/* a / gcd * b for a, b other than 0. */
static int StoreMultiple(hx_scratch* s, hx_number a, hx_number b, hx_number divisor, mp_int* m) {
    const size_t qn = a.n - divisor.n + 1;
    hx_limb* quotient = hx_scratch_take(s, qn);
    hx_limb* product = hx_scratch_take(s, qn + b.n);
    hx_limb* work = s->limbs + s->taken;
    hx_div(quotient, NULL, a.limbs, a.n, divisor.limbs, divisor.n, work);
    const size_t n = hx_normal(quotient, qn);
    if (n >= b.n)
        hx_mul(product, quotient, n, b.limbs, b.n, work);
    else
        hx_mul(product, b.limbs, b.n, quotient, n, work);
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
    const size_t work = 3 * n + 2 + hx_div_scratch_bound(n) + hx_mul_scratch_bound(n);
    hx_scratch s;
    int code = hx_scratch_open(&s, 2 * n + DivisorScratch(n) + work);
    if (code != MP_SUCCESS)
        return code;
    hx_number left = hx_load(&s, a);
    hx_number right = hx_load(&s, b);
    Order(&left, &right);
    const hx_number divisor = Divisor(&s, left, right, n, NULL, NULL);
    code = StoreMultiple(&s, left, right, divisor, m);
    hx_scratch_close(&s);
    return code;
}

/* The cofactor of b: (g - a * x) / b, or 0 where b is 0. */
static hx_number OtherCofactor(hx_scratch* s, hx_number a, hx_number b, hx_number g, hx_number x) {
    if (b.n == 0)
        return (hx_number){b.limbs, 0, 0};
    const size_t n = a.n + x.n;
    hx_limb* product = hx_scratch_take(s, n + 1);
    hx_limb* difference = hx_scratch_take(s, n + 2);
    hx_limb* quotient = hx_scratch_take(s, n + 2);
    hx_limb* work = s->limbs + s->taken;
    if (x.n > 0 && a.n >= x.n)
        hx_mul(product, a.limbs, a.n, x.limbs, x.n, work);
    else if (x.n > 0)
        hx_mul(product, x.limbs, x.n, a.limbs, a.n, work);
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
    const size_t work = 6 * n + 8 + hx_div_scratch_bound(2 * n + 2) + hx_mul_scratch_bound(n);
    hx_scratch s;
    int code = hx_scratch_open(&s, 3 * n + 1 + DivisorScratch(n) + work);
    if (code != MP_SUCCESS)
        return code;
    hx_number left = hx_load(&s, a);
    hx_number right = hx_load(&s, b);
    const hx_limb* of_a = left.limbs;
    Order(&left, &right);
    hx_limb* limbs = hx_scratch_take(&s, n + 1);
    hx_number first;
    const hx_number divisor = Divisor(&s, left, right, n, &first, limbs);
    first.negative ^= left.negative;
    const hx_number second = OtherCofactor(&s, left, right, divisor, first);
    const int exchanged = left.limbs != of_a;
    hx_result results[] = {{g, divisor, NULL, 0},
                           {x, exchanged ? second : first, NULL, 0},
                           {y, exchanged ? first : second, NULL, 0}};
    code = hx_store_all(results, 3);
    hx_scratch_close(&s);
    return code;
}

/* The inverse of a below m, both reduced; the result tells whether there is one. */
static int Inverse(hx_scratch* s, hx_limb* r, hx_number a, hx_number m, size_t n) {
    hx_limb* limbs = hx_scratch_take(s, n + 1);
    hx_number cofactor;
    /* The cofactor of the larger of the two is found: a stands in as a + m. */
    hx_limb* raised = hx_scratch_take(s, n + 1);
    raised[m.n] = hx_add(raised, m.limbs, m.n, a.limbs, a.n);
    const hx_number larger = {raised, hx_normal(raised, m.n + 1), 0};
    const hx_number divisor = Divisor(s, larger, m, n + 1, &cofactor, limbs);
    if (divisor.n != 1 || divisor.limbs[0] != 1)
        return 0;
    hx_mod(r, cofactor, m, s->limbs + s->taken);
    return 1;
}

/* Kept: the inverse belongs to the signed value, and takes the value's sign on top of that. */
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
    hx_mod(reduced, number, modulus, s.limbs + s.taken);
    const hx_number value = {reduced, hx_normal(reduced, modulus.n), 0};
    code = MP_UNDEFINED;
    if (Inverse(&s, inverse, value, modulus, n))
        code = hx_store(r, inverse, modulus.n, number.negative);
    hx_scratch_close(&s);
    return code;
}
