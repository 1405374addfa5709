/* Arithmetic on plain arrays of limbs, least significant first, without signs and without records.
 * Lengths are counts of limbs. Results do not overlap operands unless it says "in place": then a
 * result may be an operand, at the same address. Nothing here allocates; where work memory is
 * needed, a function ending in _scratch tells how many limbs of it. */
#ifndef HX_BIGINT_KERNEL_H
#define HX_BIGINT_KERNEL_H

#include "limb.h"

/* Lengths from which a method pays, measured by bench/bigint_thresholds. There, and in the tests,
 * they are given from outside. */
#ifdef HX_BIGINT_TUNABLE
extern size_t hx_karatsuba_mul, hx_karatsuba_sqr, hx_toom3_mul, hx_toom3_sqr, hx_recursive_div,
    hx_recursive_text, hx_whole_reduction;
#define HX_KARATSUBA_MUL hx_karatsuba_mul
#define HX_KARATSUBA_SQR hx_karatsuba_sqr
#define HX_TOOM3_MUL hx_toom3_mul
#define HX_TOOM3_SQR hx_toom3_sqr
#define HX_RECURSIVE_DIV hx_recursive_div
#define HX_RECURSIVE_TEXT hx_recursive_text
#define HX_WHOLE_REDUCTION hx_whole_reduction
#endif
#ifndef HX_KARATSUBA_MUL
#define HX_KARATSUBA_MUL 30
#define HX_KARATSUBA_SQR 60
#define HX_TOOM3_MUL 140
#define HX_TOOM3_SQR 210
#define HX_RECURSIVE_DIV 40
#define HX_RECURSIVE_TEXT 12
#define HX_WHOLE_REDUCTION 240
#endif

/* --- kernel_basic.c: additions, shifts, comparisons --------------------------------------- */

/* The length without zero limbs at the top. */
size_t hx_normal(const hx_limb* a, size_t n);
int hx_cmp_n(const hx_limb* a, const hx_limb* b, size_t n);
int hx_cmp(const hx_limb* a, size_t an, const hx_limb* b, size_t bn);
/* Bits of a number whose top limb is not 0. */
uint64_t hx_bits(const hx_limb* a, size_t n);
/* In place; the results are carry and borrow. The lengths an >= bn may be 0. */
hx_limb hx_add_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n);
hx_limb hx_sub_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n);
hx_limb hx_add(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn);
hx_limb hx_sub(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn);
hx_limb hx_add_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b);
hx_limb hx_sub_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b);
/* In place, by 0 to 63 bits; the result is what falls out of the array. */
hx_limb hx_shift_left(hx_limb* r, const hx_limb* a, size_t n, unsigned bits);
hx_limb hx_shift_right(hx_limb* r, const hx_limb* a, size_t n, unsigned bits);
/* The limbs that hold so many bits. */
size_t hx_limbs_of_bits(uint64_t bits);
void hx_zero(hx_limb* r, size_t n);
void hx_copy(hx_limb* r, const hx_limb* a, size_t n);

/* --- kernel_rows.c: products of a number and a few limbs ---------------------------------- */

/* In place; the result is the upper limb. */
hx_limb hx_mul_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b, hx_limb carry);
hx_limb hx_addmul_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b);
hx_limb hx_submul_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b);
/* Adds a[0..w) * b[0..n) to r[0..n) and stores the rest in r[n..n+w); w is at most 8. */
enum { HX_BLOCK = 8 };
void hx_addmul_block(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a, size_t w);
void hx_mul_basecase(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn);
void hx_sqr_basecase(hx_limb* r, const hx_limb* a, size_t n);

/* --- kernel_mul.c, kernel_toom.c: products of any length ---------------------------------- */

/* r[0..2n) = a * b, r[0..2n) = a * a; n is at least 1. */
void hx_mul_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n, hx_limb* scratch);
void hx_sqr(hx_limb* r, const hx_limb* a, size_t n, hx_limb* scratch);
/* For both of the above. */
size_t hx_mul_n_scratch(size_t n);
/* r[0..an+bn) = a * b; both have at least 1 limb. */
void hx_mul(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn, hx_limb* scratch);
size_t hx_mul_scratch(size_t an, size_t bn);
/* Enough for any product whose shorter operand has at most n limbs, and for squares of n. */
size_t hx_mul_scratch_bound(size_t n);
void hx_toom3_mul_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n, hx_limb* scratch);
size_t hx_toom3_scratch(size_t n);
/* Below this length thirds do not come out shorter. */
enum { HX_TOOM3_LEAST = 9 };

/* --- kernel_div.c: quotients --------------------------------------------------------------- */

/* A divisor of one limb, prepared. */
typedef struct {
    hx_limb normal;
    hx_limb reciprocal;
    unsigned shift;
} hx_divisor;
hx_divisor hx_divisor_of(hx_limb d);
/* q = a / d in place, d not 0; the result is the remainder. */
hx_limb hx_div_by(hx_limb* q, const hx_limb* a, size_t n, hx_divisor d);
hx_limb hx_div_1(hx_limb* q, const hx_limb* a, size_t n, hx_limb d);
/* q[0..an-bn] = a / b and a[0..bn) = a mod b. The top limb of b has its top bit set; an >= bn. The
 * topmost limb of the quotient is 0 or 1. */
void hx_div_normal(hx_limb* q, hx_limb* a, size_t an, const hx_limb* b, size_t bn,
                   hx_limb* scratch);
size_t hx_div_normal_scratch(size_t an, size_t bn);
/* q[0..an-bn] = a / b, r[0..bn) = a mod b for any b with a top limb other than 0; an >= bn. `q` and
 * `r` may be null. */
void hx_div(hx_limb* q, hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn,
            hx_limb* scratch);
size_t hx_div_scratch(size_t an, size_t bn);
/* Enough for any dividend of at most n limbs. */
size_t hx_div_scratch_bound(size_t n);

/* --- kernel_barrett.c: powers modulo a number ---------------------------------------------- */

/* r[0..mn) = base^exponent mod m. base is below m and padded to mn limbs; m has no zero at the top;
 * the exponent is not 0. */
void hx_powm(hx_limb* r, const hx_limb* base, const hx_limb* exponent, size_t en, const hx_limb* m,
             size_t mn, hx_limb* scratch);
size_t hx_powm_scratch(size_t mn);

/* --- kernel_gcd.c: greatest common divisors ------------------------------------------------ */

/* g = gcd(a, b), of at most bn limbs, and the magnitude u of a cofactor with u * a = +-g modulo b,
 * of at most bn limbs. a >= b > 0. a and b are used up. `u` may be null. The results are the
 * lengths, and *negative tells the sign of the cofactor. */
size_t hx_gcd(hx_limb* g, hx_limb* u, size_t* un, int* negative, hx_limb* a, size_t an, hx_limb* b,
              size_t bn, hx_limb* scratch);
size_t hx_gcd_scratch(size_t an, size_t bn);

/* --- kernel_root.c: square roots ----------------------------------------------------------- */

/* r[0..(n+1)/2) = the root of a, rounded down; a has no zero at the top and is used up. */
void hx_sqrt(hx_limb* r, hx_limb* a, size_t n, hx_limb* scratch);
size_t hx_sqrt_scratch(size_t n);

/* --- kernel_text.c: digits of a radix ------------------------------------------------------ */

/* The limbs that hold any number of so many digits of the radix. */
size_t hx_text_limbs(size_t digits, unsigned radix);
/* The digits that may be needed for n limbs. */
size_t hx_text_digits(size_t n, unsigned radix);
/* r = the number written by the values of its digits, the most significant first; the result is its
 * length. */
size_t hx_from_text(hx_limb* r, const unsigned char* values, size_t digits, unsigned radix,
                    hx_limb* scratch);
size_t hx_from_text_scratch(size_t digits, unsigned radix);
/* Writes the values of the digits without leading zeros and tells how many; a is used up, and has
 * no zero at the top. */
size_t hx_to_text(unsigned char* values, hx_limb* a, size_t n, unsigned radix, hx_limb* scratch);
size_t hx_to_text_scratch(size_t n, unsigned radix);

#endif
