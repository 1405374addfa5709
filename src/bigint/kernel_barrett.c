/* Powers modulo a number: the exponent's bits from the least significant one on, each product
 * reduced after Barrett. The modulus m is shifted until its top bit is set, so that B^2k / m is
 * B^k + v with v below B^k, where B is 2^64 and k the limbs of m. Of the two products of a
 * reduction only the half is computed that is needed. */
#include "kernel.h"

typedef struct {
    size_t k;
    hx_limb* m;       /* k limbs, the top bit set */
    hx_limb* v;       /* k limbs */
    hx_limb* product; /* 2k limbs, what is to be reduced */
    hx_limb* high;    /* 2k limbs: xh * v */
    hx_limb* low;     /* 2k limbs and a block: q * m */
    hx_limb* inner;   /* for products */
} Barrett;

/* The columns of a * b from k-2 on; what is left out is below one unit of column k. */
static void MultiplyHigh(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t k) {
    const size_t lowest = k > HX_BLOCK + 1 ? k - HX_BLOCK - 1 : 0;
    hx_zero(r + lowest, k - lowest);
    for (size_t i = 0; i < k; i += HX_BLOCK) {
        const size_t w = hx_smaller(k - i, HX_BLOCK);
        const size_t from = k > i + w + 1 ? k - i - w - 1 : 0;
        hx_addmul_block(r + i + from, b + from, k - from, a + i, w);
    }
}

/* The lowest k+1 limbs of a * b. */
static void MultiplyLow(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t k) {
    hx_zero(r, k);
    for (size_t i = 0; i < k; i += HX_BLOCK)
        hx_addmul_block(r + i, b, i == 0 ? k : k + 1 - i, a + i, hx_smaller(k - i, HX_BLOCK));
}

/* r = the product modulo m. */
static void Reduce(const Barrett* b, hx_limb* r) {
    const size_t k = b->k;
    hx_limb* x = b->product;
    hx_limb* q = b->high + k;
    /* Long numbers: whole products by a faster method beat halves by the quadratic one. */
    if (k < HX_WHOLE_REDUCTION)
        MultiplyHigh(b->high, x + k, b->v, k);
    else
        hx_mul_n(b->high, x + k, b->v, k, b->inner);
    hx_add_n(q, q, x + k, k);
    if (k < HX_WHOLE_REDUCTION)
        MultiplyLow(b->low, q, b->m, k);
    else
        hx_mul_n(b->low, q, b->m, k, b->inner);
    hx_sub_n(x, x, b->low, k + 1);
    while (x[k] != 0 || hx_cmp_n(x, b->m, k) >= 0)
        x[k] -= hx_sub_n(x, x, b->m, k);
    hx_copy(r, x, k);
}

static size_t InnerScratch(size_t k) {
    return hx_larger(hx_mul_n_scratch(k), hx_div_normal_scratch(2 * k, k));
}

size_t hx_powm_scratch(size_t mn) {
    return 10 * mn + (size_t)2 * HX_BLOCK + InnerScratch(mn);
}

static Barrett SetUp(const hx_limb* m, size_t k, unsigned shift, hx_limb* scratch) {
    Barrett b;
    b.k = k;
    b.m = scratch;
    b.v = b.m + k;
    b.product = b.v + k;
    b.high = b.product + 2 * k;
    b.low = b.high + 2 * k + HX_BLOCK;
    b.inner = b.low + 2 * k + HX_BLOCK;
    hx_shift_left(b.m, m, k, shift);
    memset(b.product, 0xff, 2 * k * sizeof(hx_limb));
    hx_div_normal(b.high, b.product, 2 * k, b.m, k, b.inner);
    hx_copy(b.v, b.high, k);
    return b;
}

static int BitAt(const hx_limb* a, uint64_t i) {
    return (int)(a[i / HX_LIMB_BITS] >> (i % HX_LIMB_BITS) & 1);
}

void hx_powm(hx_limb* r, const hx_limb* base, const hx_limb* exponent, size_t en, const hx_limb* m,
             size_t mn, hx_limb* scratch) {
    hx_limb* x = scratch;
    hx_limb* s = x + mn;
    const unsigned shift = HX_LIMB_BITS - hx_bit_length(m[mn - 1]);
    const Barrett b = SetUp(m, mn, shift, s + mn);
    const uint64_t bits = hx_bits(exponent, en);
    int first = 1;
    hx_copy(s, base, mn);
    for (uint64_t i = 0; i < bits; ++i) {
        if (i > 0) {
            hx_sqr(b.product, s, mn, b.inner);
            Reduce(&b, s);
        }
        if (!BitAt(exponent, i))
            continue;
        if (first) {
            hx_copy(x, s, mn);
        } else {
            hx_mul_n(b.product, x, s, mn, b.inner);
            Reduce(&b, x);
        }
        first = 0;
    }
    /* x is below the shifted modulus: shifted as well, it leaves the shifted result. */
    hx_limb* quotient = b.high;
    b.product[mn] = hx_shift_left(b.product, x, mn, shift);
    hx_div_normal(quotient, b.product, mn + 1, b.m, mn, b.inner);
    hx_shift_right(r, b.product, mn, shift);
}
