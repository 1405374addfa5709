#include "number.h"

void HxOrder(HxNumber* a, HxNumber* b) {
    if (HxCmp(a->limbs, a->n, b->limbs, b->n) < 0) {
        const HxNumber smaller = *a;
        *a = *b;
        *b = smaller;
    }
}

size_t HxAddSigned(HxLimb* r, HxNumber a, HxNumber b, int* negative) {
    HxOrder(&a, &b);
    *negative = a.negative;
    if (a.negative == b.negative)
        r[a.n] = HxAdd(r, a.limbs, a.n, b.limbs, b.n);
    else
        r[a.n] = HxSub(r, a.limbs, a.n, b.limbs, b.n);
    return HxNormal(r, a.n + 1);
}

size_t HxModScratch(size_t an, size_t mn) {
    return an < mn ? 0 : HxDivScratch(an, mn);
}

void HxMod(HxLimb* r, HxNumber a, HxNumber m, HxLimb* scratch) {
    if (a.n < m.n) {
        HxCopy(r, a.limbs, a.n);
        HxZero(r + a.n, m.n - a.n);
    } else {
        HxDiv(NULL, r, a.limbs, a.n, m.limbs, m.n, scratch);
    }
    if (a.negative && HxNormal(r, m.n) > 0)
        HxSubN(r, m.limbs, r, m.n);
}
