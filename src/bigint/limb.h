/* One limb: 64 bits. Products and sums of single limbs depend on the machine here only.
 *
 * HX_BIGINT_PORTABLE leaves out everything that belongs to one compiler or machine: the 128-bit
 * type, the assembly, and the copying of digits as a block. */
#ifndef HX_BIGINT_LIMB_H
#define HX_BIGINT_LIMB_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

typedef uint64_t hx_limb;

enum { HX_LIMB_BITS = 64 };

#define HX_LIMB_MAX UINT64_MAX

#if !defined(HX_BIGINT_PORTABLE) && defined(__SIZEOF_INT128__)
#define HX_WIDE_PRODUCTS 1
__extension__ typedef unsigned __int128 hx_wide;
#else
#define HX_WIDE_PRODUCTS 0
#endif

/* Returns the lower limb of a * b and stores the upper one in *high. */
static inline hx_limb hx_mul_wide(hx_limb a, hx_limb b, hx_limb* high) {
#if HX_WIDE_PRODUCTS
    const hx_wide product = (hx_wide)a * b;
    *high = (hx_limb)(product >> HX_LIMB_BITS);
    return (hx_limb)product;
#else
    const hx_limb half = UINT32_MAX;
    const hx_limb low = (a & half) * (b & half);
    const hx_limb cross = (a >> 32) * (b & half) + (low >> 32);
    const hx_limb middle = (a & half) * (b >> 32) + (cross & half);
    *high = (a >> 32) * (b >> 32) + (cross >> 32) + (middle >> 32);
    return (middle << 32) | (low & half);
#endif
}

/* Returns the lower limb of a * b + c + *carry and stores the upper one in *carry. */
static inline hx_limb hx_mul_add(hx_limb a, hx_limb b, hx_limb c, hx_limb* carry) {
#if HX_WIDE_PRODUCTS
    const hx_wide sum = (hx_wide)a * b + c + *carry;
    *carry = (hx_limb)(sum >> HX_LIMB_BITS);
    return (hx_limb)sum;
#else
    hx_limb high;
    hx_limb low = hx_mul_wide(a, b, &high);
    low += c;
    high += low < c;
    low += *carry;
    high += low < *carry;
    *carry = high;
    return low;
#endif
}

/* Returns a + b + *carry and stores the new carry; a carry is 0 or 1. */
static inline hx_limb hx_add_carry(hx_limb a, hx_limb b, hx_limb* carry) {
    const hx_limb first = a + b;
    const hx_limb sum = first + *carry;
    *carry = (hx_limb)(first < a) | (hx_limb)(sum < first);
    return sum;
}

/* Returns a - b - *borrow and stores the new borrow; a borrow is 0 or 1. */
static inline hx_limb hx_sub_borrow(hx_limb a, hx_limb b, hx_limb* borrow) {
    const hx_limb first = a - b;
    const hx_limb difference = first - *borrow;
    *borrow = (hx_limb)(a < b) | (hx_limb)(first < *borrow);
    return difference;
}

/* Returns the number of bits up to the highest set one; 0 for 0. */
static inline unsigned hx_bit_length(hx_limb a) {
#if !defined(HX_BIGINT_PORTABLE) && defined(__GNUC__)
    return a == 0 ? 0 : HX_LIMB_BITS - (unsigned)__builtin_clzll(a);
#else
    unsigned bits = 0;
    for (unsigned step = HX_LIMB_BITS / 2; step > 0; step /= 2) {
        if (a >> step != 0) {
            a >>= step;
            bits += step;
        }
    }
    return bits + (unsigned)a;
#endif
}

/* Zeroes memory before it is freed, in a way that the compiler cannot remove. */
static inline void hx_wipe(void* memory, size_t size) {
#if defined(__GNUC__)
    memset(memory, 0, size);
    __asm__ volatile("" : : "r"(memory) : "memory");
#else
    for (volatile unsigned char* byte = memory; size > 0; --size)
        *byte++ = 0;
#endif
}

static inline size_t hx_larger(size_t a, size_t b) {
    return a > b ? a : b;
}

static inline size_t hx_smaller(size_t a, size_t b) {
    return a < b ? a : b;
}

#endif
