/* Arithmetic on arrays of limbs, least significant first, without signs and records. Lengths count
 * limbs. Results do not overlap operands, except "in place": there a result may be an operand at
 * the same address. Nothing here allocates. For functions that need work memory, a function ending
 * in Scratch returns how many limbs. */
#ifndef HX_BIGINT_KERNEL_H
#define HX_BIGINT_KERNEL_H

#include "limb.h"

/* Lengths from which a method is faster than the previous one, measured by bench/bigint_thresholds.
 * That program and the tests set their own. */
#ifdef HX_BIGINT_TUNABLE
extern size_t hxKaratsubaMul, hxKaratsubaSqr, hxToom3Mul, hxToom3Sqr, hxRecursiveDiv,
    hxRecursiveText, hxWholeReduction;
#define HX_KARATSUBA_MUL hxKaratsubaMul
#define HX_KARATSUBA_SQR hxKaratsubaSqr
#define HX_TOOM3_MUL hxToom3Mul
#define HX_TOOM3_SQR hxToom3Sqr
#define HX_RECURSIVE_DIV hxRecursiveDiv
#define HX_RECURSIVE_TEXT hxRecursiveText
#define HX_WHOLE_REDUCTION hxWholeReduction
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

/* Returns the length without zero limbs at the top. */
size_t HxNormal(const HxLimb* a, size_t n);
int HxCmpN(const HxLimb* a, const HxLimb* b, size_t n);
int HxCmp(const HxLimb* a, size_t an, const HxLimb* b, size_t bn);
/* Returns the number of bits; the top limb is not 0. */
uint64_t HxBits(const HxLimb* a, size_t n);
/* In place; return the carry or the borrow. an >= bn; lengths may be 0. */
HxLimb HxAddN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n);
HxLimb HxSubN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n);
HxLimb HxAdd(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn);
HxLimb HxSub(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn);
HxLimb HxAdd1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b);
HxLimb HxSub1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b);
/* In place, by 0 to 63 bits; return the bits shifted out. */
HxLimb HxShiftLeft(HxLimb* r, const HxLimb* a, size_t n, unsigned bits);
HxLimb HxShiftRight(HxLimb* r, const HxLimb* a, size_t n, unsigned bits);
/* Returns the number of limbs for `bits` bits. */
size_t HxLimbsOfBits(uint64_t bits);
void HxZero(HxLimb* r, size_t n);
void HxCopy(HxLimb* r, const HxLimb* a, size_t n);

/* --- kernel_rows.c: products of a number and a few limbs ---------------------------------- */

/* In place; return the upper limb. */
HxLimb HxMul1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b, HxLimb carry);
HxLimb HxAddmul1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b);
HxLimb HxSubmul1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b);
/* Adds a[0..w) * b[0..n) to r[0..n) and stores the rest in r[n..n+w); w is at most HX_BLOCK. */
enum { HX_BLOCK = 8 };
void HxAddmulBlock(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a, size_t w);
void HxMulBasecase(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn);
void HxSqrBasecase(HxLimb* r, const HxLimb* a, size_t n);

/* --- kernel_mul.c, kernel_toom.c: products of any length ---------------------------------- */

/* r[0..2n) = a * b, r[0..2n) = a * a; n is at least 1. */
void HxMulN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n, HxLimb* scratch);
void HxSqr(HxLimb* r, const HxLimb* a, size_t n, HxLimb* scratch);
/* For HxMulN and HxSqr. */
size_t HxMulNScratch(size_t n);
/* r[0..an+bn) = a * b; both have at least 1 limb. */
void HxMul(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn, HxLimb* scratch);
size_t HxMulScratch(size_t an, size_t bn);
/* Enough for any product whose shorter operand has at most n limbs, and for squares of n. */
size_t HxMulScratchBound(size_t n);
void HxToom3MulN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n, HxLimb* scratch);
size_t HxToom3Scratch(size_t n);
/* Shorter operands do not get shorter in thirds. */
enum { HX_TOOM3_LEAST = 9 };

/* --- kernel_div.c: quotients --------------------------------------------------------------- */

/* A divisor of one limb with its reciprocal. */
typedef struct {
    HxLimb normal;
    HxLimb reciprocal;
    unsigned shift;
} HxDivisor;
HxDivisor HxDivisorOf(HxLimb d);
/* q = a / d in place, d not 0; return the remainder. */
HxLimb HxDivBy(HxLimb* q, const HxLimb* a, size_t n, HxDivisor d);
HxLimb HxDiv1(HxLimb* q, const HxLimb* a, size_t n, HxLimb d);
/* q[0..an-bn] = a / b and a[0..bn) = a mod b. The top limb of b has its top bit set; an >= bn. The
 * top limb of the quotient is 0 or 1. */
void HxDivNormal(HxLimb* q, HxLimb* a, size_t an, const HxLimb* b, size_t bn, HxLimb* scratch);
size_t HxDivNormalScratch(size_t an, size_t bn);
/* q[0..an-bn] = a / b, r[0..bn) = a mod b for any b with a top limb other than 0; an >= bn. q and
 * r may be null. */
void HxDiv(HxLimb* q, HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn,
           HxLimb* scratch);
size_t HxDivScratch(size_t an, size_t bn);
/* Enough for any dividend of at most n limbs. */
size_t HxDivScratchBound(size_t n);

/* --- kernel_barrett.c: powers modulo a number ---------------------------------------------- */

/* r[0..mn) = base^exponent mod m. base is below m and padded to mn limbs; the top limb of m
 * is not 0; the exponent is not 0. */
void HxPowm(HxLimb* r, const HxLimb* base, const HxLimb* exponent, size_t en, const HxLimb* m,
            size_t mn, HxLimb* scratch);
size_t HxPowmScratch(size_t mn);

/* --- kernel_gcd.c: greatest common divisors ------------------------------------------------ */

/* g = gcd(a, b), of at most bn limbs, and the magnitude u of a cofactor with u * a = +-g modulo b,
 * of at most bn limbs. a >= b > 0. Overwrites a and b. u may be null. Returns the length of g and
 * stores the length of u in *un and its sign in *negative. */
size_t HxGcd(HxLimb* g, HxLimb* u, size_t* un, int* negative, HxLimb* a, size_t an, HxLimb* b,
             size_t bn, HxLimb* scratch);
size_t HxGcdScratch(size_t an, size_t bn);

/* --- kernel_root.c: square roots ----------------------------------------------------------- */

/* r[0..(n+1)/2) = the root of a, rounded down. The top limb of a is not 0. Overwrites a. */
void HxSqrt(HxLimb* r, HxLimb* a, size_t n, HxLimb* scratch);
size_t HxSqrtScratch(size_t n);

/* --- kernel_text.c: digits of a radix ------------------------------------------------------ */

/* Returns the number of limbs for any number of `digits` digits of the radix. */
size_t HxTextLimbs(size_t digits, unsigned radix);
/* Returns the largest number of digits for n limbs. */
size_t HxTextDigits(size_t n, unsigned radix);
/* r = the number with the digits `values`, most significant first. Returns its length. */
size_t HxFromText(HxLimb* r, const unsigned char* values, size_t digits, unsigned radix,
                  HxLimb* scratch);
size_t HxFromTextScratch(size_t digits, unsigned radix);
/* Writes the values of the digits without leading zeros and returns their number. The top limb of a
 * is not 0. Overwrites a. */
size_t HxToText(unsigned char* values, HxLimb* a, size_t n, unsigned radix, HxLimb* scratch);
size_t HxToTextScratch(size_t n, unsigned radix);

#endif
