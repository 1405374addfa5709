/* Work memory, reading records into limbs, and storing results. */
#include "record.h"

#include <stdlib.h>

int hx_scratch_open(hx_scratch* s, size_t limbs) {
    s->taken = 0;
    s->size = limbs;
    s->limbs = s->fixed;
    if (limbs <= HX_SCRATCH_FIXED)
        return MP_SUCCESS;
    s->limbs = calloc(limbs, sizeof(hx_limb));
    return s->limbs == NULL ? MP_OUT_OF_MEMORY : MP_SUCCESS;
}

hx_limb* hx_scratch_take(hx_scratch* s, size_t limbs) {
    hx_limb* const taken = s->limbs + s->taken;
    s->taken += limbs;
    return taken;
}

void hx_scratch_close(hx_scratch* s) {
    if (s->limbs == s->fixed)
        return;
    hx_wipe(s->limbs, s->size * sizeof(hx_limb));
    free(s->limbs);
}

hx_number hx_load(hx_scratch* s, const mp_int* mp) {
    const size_t n = hx_limbs(mp);
    hx_limb* limbs = hx_scratch_take(s, n);
    hx_limbs_from_digits(limbs, mp->dp, mp->used);
    return (hx_number){limbs, hx_normal(limbs, n), mp->sign != 0};
}

mp_digit* hx_new_digits(size_t count) {
    return calloc(count, sizeof(mp_digit));
}

void hx_free_digits(mp_digit* digits, size_t count) {
    hx_wipe(digits, count * sizeof(mp_digit));
    free(digits);
}

/* Digits of the value, at least 1. */
static uint64_t DigitsOf(hx_number value) {
    const uint64_t digits = (hx_bits(value.limbs, value.n) + HX_DIGIT_BITS - 1) / HX_DIGIT_BITS;
    return digits == 0 ? 1 : digits;
}

/* Sees that there is room for the result. */
static int Prepare(hx_result* result) {
    result->fresh = NULL;
    result->value.n = hx_normal(result->value.limbs, result->value.n);
    const uint64_t needed = DigitsOf(result->value);
    if (needed <= result->to->alloc)
        return MP_SUCCESS;
    const uint64_t precision = mp_get_prec();
    const uint64_t rounded = (needed + precision - 1) / precision * precision;
    if (rounded > UINT32_MAX)
        return MP_OUT_OF_MEMORY;
    result->alloc = (uint32_t)rounded;
    result->fresh = hx_new_digits((size_t)rounded);
    return result->fresh == NULL ? MP_OUT_OF_MEMORY : MP_SUCCESS;
}

/* Digits above the ones in use are left zero. */
static void Commit(const hx_result* result) {
    mp_int* to = result->to;
    if (result->fresh != NULL) {
        hx_free_digits(to->dp, to->alloc);
        to->dp = result->fresh;
        to->alloc = result->alloc;
        to->used = 1;
    }
    const uint32_t used = (uint32_t)DigitsOf(result->value);
    if (result->value.n == 0)
        to->dp[0] = 0;
    else
        hx_limbs_to_digits(to->dp, used, result->value.limbs);
    if (to->used > used)
        memset(to->dp + used, 0, (to->used - used) * sizeof(mp_digit));
    to->used = used;
    to->sign = result->value.n > 0 && result->value.negative;
}

int hx_store_all(hx_result* results, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const int code = Prepare(&results[i]);
        if (code != MP_SUCCESS) {
            while (i-- > 0)
                free(results[i].fresh);
            return code;
        }
    }
    for (size_t i = 0; i < count; ++i)
        Commit(&results[i]);
    return MP_SUCCESS;
}

int hx_store(mp_int* to, const hx_limb* limbs, size_t n, int negative) {
    hx_result result = {to, {limbs, n, negative}, NULL, 0};
    return hx_store_all(&result, 1);
}

size_t hx_mod_scratch(size_t an, size_t mn) {
    return an < mn ? 0 : hx_div_scratch(an, mn);
}

void hx_mod(hx_limb* r, hx_number a, hx_number m, hx_limb* scratch) {
    if (a.n < m.n) {
        hx_copy(r, a.limbs, a.n);
        hx_zero(r + a.n, m.n - a.n);
    } else {
        hx_div(NULL, r, a.limbs, a.n, m.limbs, m.n, scratch);
    }
    if (a.negative && hx_normal(r, m.n) > 0)
        hx_sub_n(r, m.limbs, r, m.n);
}
