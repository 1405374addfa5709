/* Signed numbers in limbs, without memory management. */
#ifndef HX_BIGINT_NUMBER_H
#define HX_BIGINT_NUMBER_H

#include "kernel.h"

/* A number without zero limbs at the top: 0 has no limbs. */
typedef struct {
    const HxLimb* limbs;
    size_t n;
    int negative;
} HxNumber;

/* Exchanges a and b if the magnitude of a is the smaller one. */
void HxOrder(HxNumber* a, HxNumber* b);

/* r = a + b for r of one limb more than the longer operand. Returns the length of the sum. */
size_t HxAddSigned(HxLimb* r, HxNumber a, HxNumber b, int* negative);

/* r = a modulo m, in 0 to m - 1, for r of m.n limbs; `scratch` has HxModScratch limbs. */
void HxMod(HxLimb* r, HxNumber a, HxNumber m, HxLimb* scratch);
size_t HxModScratch(size_t an, size_t mn);

#endif
