#include "number.h"

void hx_order(hx_number* a, hx_number* b) {
    if (hx_cmp(a->limbs, a->n, b->limbs, b->n) < 0) {
        const hx_number smaller = *a;
        *a = *b;
        *b = smaller;
    }
}

size_t hx_add_signed(hx_limb* r, hx_number a, hx_number b, int* negative) {
    hx_order(&a, &b);
    *negative = a.negative;
    if (a.negative == b.negative)
        r[a.n] = hx_add(r, a.limbs, a.n, b.limbs, b.n);
    else
        r[a.n] = hx_sub(r, a.limbs, a.n, b.limbs, b.n);
    return hx_normal(r, a.n + 1);
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
