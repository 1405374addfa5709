/* Signed numbers in limbs, without memory management. */
#ifndef HX_BIGINT_NUMBER_H
#define HX_BIGINT_NUMBER_H

#include "kernel.h"

/* A number without zero limbs at the top: 0 has no limbs. */
typedef struct {
    const hx_limb* limbs;
    size_t n;
    int negative;
} hx_number;

/* Exchanges a and b if the magnitude of a is the smaller one. */
void hx_order(hx_number* a, hx_number* b);

/* r = a + b for r of one limb more than the longer operand. Returns the length of the sum. */
size_t hx_add_signed(hx_limb* r, hx_number a, hx_number b, int* negative);

/* r = a modulo m, in 0 to m - 1, for r of m.n limbs; `scratch` has hx_mod_scratch limbs. */
void hx_mod(hx_limb* r, hx_number a, hx_number m, hx_limb* scratch);
size_t hx_mod_scratch(size_t an, size_t mn);

#endif
