/* One limb: 64 bits. Products and sums of single limbs depend on the machine here only.
 *
 * HX_BIGINT_PORTABLE leaves out everything that belongs to one compiler or machine: the 128-bit
 * type, the assembly, and the copying of digits as a block. */
#ifndef HX_BIGINT_LIMB_H
#define HX_BIGINT_LIMB_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

typedef uint64_t HxLimb;

enum { HX_LIMB_BITS = 64 };

#define HX_LIMB_MAX UINT64_MAX

#if !defined(HX_BIGINT_PORTABLE) && defined(__SIZEOF_INT128__)
#define HX_WIDE_PRODUCTS 1
__extension__ typedef unsigned __int128 HxWide;
#else
#define HX_WIDE_PRODUCTS 0
#endif

/* Returns the lower limb of a * b and stores the upper one in *high. */
static inline HxLimb HxMulWide(HxLimb a, HxLimb b, HxLimb* high) {
#if HX_WIDE_PRODUCTS
    const HxWide product = (HxWide)a * b;
    *high = (HxLimb)(product >> HX_LIMB_BITS);
    return (HxLimb)product;
#else
    const HxLimb half = UINT32_MAX;
    const HxLimb low = (a & half) * (b & half);
    const HxLimb cross = (a >> 32) * (b & half) + (low >> 32);
    const HxLimb middle = (a & half) * (b >> 32) + (cross & half);
    *high = (a >> 32) * (b >> 32) + (cross >> 32) + (middle >> 32);
    return (middle << 32) | (low & half);
#endif
}

/* Returns the lower limb of a * b + c + *carry and stores the upper one in *carry. */
static inline HxLimb HxMulAdd(HxLimb a, HxLimb b, HxLimb c, HxLimb* carry) {
#if HX_WIDE_PRODUCTS
    const HxWide sum = (HxWide)a * b + c + *carry;
    *carry = (HxLimb)(sum >> HX_LIMB_BITS);
    return (HxLimb)sum;
#else
    HxLimb high;
    HxLimb low = HxMulWide(a, b, &high);
    low += c;
    high += low < c;
    low += *carry;
    high += low < *carry;
    *carry = high;
    return low;
#endif
}

/* Returns a + b + *carry and stores the new carry; a carry is 0 or 1. */
static inline HxLimb HxAddCarry(HxLimb a, HxLimb b, HxLimb* carry) {
    const HxLimb first = a + b;
    const HxLimb sum = first + *carry;
    *carry = (HxLimb)(first < a) | (HxLimb)(sum < first);
    return sum;
}

/* Returns a - b - *borrow and stores the new borrow; a borrow is 0 or 1. */
static inline HxLimb HxSubBorrow(HxLimb a, HxLimb b, HxLimb* borrow) {
    const HxLimb first = a - b;
    const HxLimb difference = first - *borrow;
    *borrow = (HxLimb)(a < b) | (HxLimb)(first < *borrow);
    return difference;
}

/* Returns the number of bits up to the highest set one; 0 for 0. */
static inline unsigned HxBitLength(HxLimb a) {
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
static inline void HxWipe(void* memory, size_t size) {
#if defined(__GNUC__)
    memset(memory, 0, size);
    __asm__ volatile("" : : "r"(memory) : "memory");
#else
    for (volatile unsigned char* byte = memory; size > 0; --size)
        *byte++ = 0;
#endif
}

static inline size_t HxLarger(size_t a, size_t b) {
    return a > b ? a : b;
}

static inline size_t HxSmaller(size_t a, size_t b) {
    return a < b ? a : b;
}

#endif
