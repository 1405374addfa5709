/* Powers modulo a number, from the exponent's least significant bit up, with Barrett's reduction.
 * The modulus m is shifted until its top bit is set, so that B^2k / m is B^k + v with v below B^k,
 * where B is 2^64 and m has k limbs. A reduction computes only the half that it needs of its two
 * products. */
#include "kernel.h"

typedef struct {
    size_t k;
    HxLimb* m;       /* k limbs, the top bit set */
    HxLimb* v;       /* k limbs */
    HxLimb* product; /* 2k limbs, to be reduced */
    HxLimb* high;    /* 2k limbs: xh * v */
    HxLimb* low;     /* 2k limbs and a block: q * m */
    HxLimb* inner;   /* for products */
} Barrett;

/* The columns of a * b from k-2 up; the other columns add less than one unit to column k. */
static void MultiplyHigh(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t k) {
    const size_t lowest = k > HX_BLOCK + 1 ? k - HX_BLOCK - 1 : 0;
    HxZero(r + lowest, k - lowest);
    for (size_t i = 0; i < k; i += HX_BLOCK) {
        const size_t w = HxSmaller(k - i, HX_BLOCK);
        const size_t from = k > i + w + 1 ? k - i - w - 1 : 0;
        HxAddmulBlock(r + i + from, b + from, k - from, a + i, w);
    }
}

/* The lowest k+1 limbs of a * b. */
static void MultiplyLow(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t k) {
    HxZero(r, k);
    for (size_t i = 0; i < k; i += HX_BLOCK)
        HxAddmulBlock(r + i, b, i == 0 ? k : k + 1 - i, a + i, HxSmaller(k - i, HX_BLOCK));
}

/* r = the product modulo m. */
static void Reduce(const Barrett* b, HxLimb* r) {
    const size_t k = b->k;
    HxLimb* x = b->product;
    HxLimb* q = b->high + k;
    /* For long numbers, whole products are faster than halves by the quadratic method. */
    if (k < HX_WHOLE_REDUCTION)
        MultiplyHigh(b->high, x + k, b->v, k);
    else
        HxMulN(b->high, x + k, b->v, k, b->inner);
    HxAddN(q, q, x + k, k);
    if (k < HX_WHOLE_REDUCTION)
        MultiplyLow(b->low, q, b->m, k);
    else
        HxMulN(b->low, q, b->m, k, b->inner);
    HxSubN(x, x, b->low, k + 1);
    while (x[k] != 0 || HxCmpN(x, b->m, k) >= 0)
        x[k] -= HxSubN(x, x, b->m, k);
    HxCopy(r, x, k);
}

static size_t InnerScratch(size_t k) {
    return HxLarger(HxMulNScratch(k), HxDivNormalScratch(2 * k, k));
}

size_t HxPowmScratch(size_t mn) {
    return 10 * mn + (size_t)2 * HX_BLOCK + InnerScratch(mn);
}

static Barrett SetUp(const HxLimb* m, size_t k, unsigned shift, HxLimb* scratch) {
    Barrett b;
    b.k = k;
    b.m = scratch;
    b.v = b.m + k;
    b.product = b.v + k;
    b.high = b.product + 2 * k;
    b.low = b.high + 2 * k + HX_BLOCK;
    b.inner = b.low + 2 * k + HX_BLOCK;
    HxShiftLeft(b.m, m, k, shift);
    memset(b.product, 0xff, 2 * k * sizeof(HxLimb));
    HxDivNormal(b.high, b.product, 2 * k, b.m, k, b.inner);
    HxCopy(b.v, b.high, k);
    return b;
}

static int BitAt(const HxLimb* a, uint64_t i) {
    return (int)(a[i / HX_LIMB_BITS] >> (i % HX_LIMB_BITS) & 1);
}

void HxPowm(HxLimb* r, const HxLimb* base, const HxLimb* exponent, size_t en, const HxLimb* m,
            size_t mn, HxLimb* scratch) {
    HxLimb* x = scratch;
    HxLimb* s = x + mn;
    const unsigned shift = HX_LIMB_BITS - HxBitLength(m[mn - 1]);
    const Barrett b = SetUp(m, mn, shift, s + mn);
    const uint64_t bits = HxBits(exponent, en);
    int first = 1;
    HxCopy(s, base, mn);
    for (uint64_t i = 0; i < bits; ++i) {
        if (i > 0) {
            HxSqr(b.product, s, mn, b.inner);
            Reduce(&b, s);
        }
        if (!BitAt(exponent, i))
            continue;
        if (first) {
            HxCopy(x, s, mn);
        } else {
            HxMulN(b.product, x, s, mn, b.inner);
            Reduce(&b, x);
        }
        first = 0;
    }
    /* x is reduced by the shifted modulus only: shift it too, reduce, and shift the rest back. */
    HxLimb* quotient = b.high;
    b.product[mn] = HxShiftLeft(b.product, x, mn, shift);
    HxDivNormal(quotient, b.product, mn + 1, b.m, mn, b.inner);
    HxShiftRight(r, b.product, mn, shift);
}
