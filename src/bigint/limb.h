/* One limb: 64 bits, the value of four digits. Products and quotients of single limbs, and the way
 * between limbs and digits, which are all that depends on the machine.
 *
 * HX_BIGINT_PORTABLE leaves out what belongs to one compiler or machine: the 128-bit type, the
 * assembly, and the reading of four digits as one word. */
#ifndef HX_BIGINT_LIMB_H
#define HX_BIGINT_LIMB_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "mp_int.h"

typedef uint64_t hx_limb;

enum { HX_LIMB_BITS = 64, HX_LIMB_DIGITS = 4, HX_DIGIT_BITS = 16 };

#define HX_LIMB_MAX UINT64_MAX

#if !defined(HX_BIGINT_PORTABLE) && defined(__SIZEOF_INT128__)
#define HX_WIDE_PRODUCTS 1
__extension__ typedef unsigned __int128 hx_wide;
#else
#define HX_WIDE_PRODUCTS 0
#endif

#if !defined(HX_BIGINT_PORTABLE) && defined(__BYTE_ORDER__) && \
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define HX_DIGITS_ARE_LIMBS 1
#else
#define HX_DIGITS_ARE_LIMBS 0
#endif

/* The lower limb of a * b; the upper one goes to *high. */
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

/* a * b + c + *carry; the upper limb goes to *carry. */
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

/* a + b + *carry with a carry of 0 or 1. */
static inline hx_limb hx_add_carry(hx_limb a, hx_limb b, hx_limb* carry) {
    const hx_limb first = a + b;
    const hx_limb sum = first + *carry;
    *carry = (hx_limb)(first < a) | (hx_limb)(sum < first);
    return sum;
}

/* a - b - *borrow with a borrow of 0 or 1. */
static inline hx_limb hx_sub_borrow(hx_limb a, hx_limb b, hx_limb* borrow) {
    const hx_limb first = a - b;
    const hx_limb difference = first - *borrow;
    *borrow = (hx_limb)(a < b) | (hx_limb)(first < *borrow);
    return difference;
}

/* How many bits below the highest set one and this one included; 0 for 0. */
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

/* How many zero bits lie below the lowest set one; `a` is not 0. */
static inline unsigned hx_trailing_zeros(hx_limb a) {
    return hx_bit_length(a & (~a + 1)) - 1;
}

/* The 2/1 quotient of high:low by d, which has its top bit set and is above high. */
hx_limb hx_div_wide(hx_limb high, hx_limb low, hx_limb d, hx_limb* remainder);

/* Overwrites memory that is about to be freed; the compiler must not leave it out. */
static inline void hx_wipe(void* memory, size_t size) {
#if defined(__GNUC__)
    memset(memory, 0, size);
    __asm__ volatile("" : : "r"(memory) : "memory");
#else
    for (volatile unsigned char* byte = memory; size > 0; --size)
        *byte++ = 0;
#endif
}

/* Limbs that hold so many digits. */
static inline size_t hx_limbs_of_digits(size_t digits) {
    return (digits + HX_LIMB_DIGITS - 1) / HX_LIMB_DIGITS;
}

/* Reads digits into the limbs that hold them. */
static inline void hx_limbs_from_digits(hx_limb* to, const mp_digit* digits, size_t count) {
#if HX_DIGITS_ARE_LIMBS
    if (count % HX_LIMB_DIGITS != 0)
        to[count / HX_LIMB_DIGITS] = 0;
    memcpy(to, digits, count * sizeof(mp_digit));
#else
    memset(to, 0, hx_limbs_of_digits(count) * sizeof(hx_limb));
    for (size_t i = 0; i < count; ++i)
        to[i / HX_LIMB_DIGITS] |= (hx_limb)digits[i] << (i % HX_LIMB_DIGITS * HX_DIGIT_BITS);
#endif
}

/* Writes the lowest `count` digits of the limbs. */
static inline void hx_limbs_to_digits(mp_digit* digits, size_t count, const hx_limb* from) {
#if HX_DIGITS_ARE_LIMBS
    memcpy(digits, from, count * sizeof(mp_digit));
#else
    for (size_t i = 0; i < count; ++i)
        digits[i] = (mp_digit)(from[i / HX_LIMB_DIGITS] >> (i % HX_LIMB_DIGITS * HX_DIGIT_BITS));
#endif
}

#endif
