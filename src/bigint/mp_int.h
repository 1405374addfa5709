/* Signed integers of any size for C11 and C++.
 *
 * An mp_int belongs to its caller, who initializes it with an mp_init function and releases its
 * memory with mp_clear. Callers may read the fields. Digits have 16 bits, least significant first;
 * `used` of the `alloc` allocated digits are in use. The top digit is not 0 unless the value is 0,
 * which is one digit 0 with sign 0: no negative zero exists.
 *
 * Results are the last arguments. Every result may be the same record as any operand. Several
 * results of one call should be different records; otherwise the last one is kept. A function that
 * fails leaves its results unchanged. It checks for invalid parameters (null pointers and records
 * without memory) before it checks for values out of range. Records grow as needed, to a multiple
 * of the default precision.
 *
 * The functions share nothing except the default precision. They may run in several threads if
 * only one thread at a time uses a record. */
#ifndef HX_MP_INT_H
#define HX_MP_INT_H

#include <stdint.h>

/* Marks what the library exports. */
#define HX_EXPORT_MP __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* One of 65536 values. */
typedef uint16_t mp_digit;

/* A record. The order of the fields is the library's binary interface. */
typedef struct {
    uint8_t sign;   /* 0: zero or positive, 1: negative */
    uint32_t alloc; /* number of allocated digits; 0 in a cleared record */
    uint32_t used;  /* number of digits in use, at least 1; 0 in a cleared record */
    mp_digit* dp;   /* the digits, least significant first; null in a cleared record */
} mp_int;

/* Result codes of all functions unless noted otherwise. mp_strerror returns their texts. */
enum {
    MP_SUCCESS = 0,            /* the results are stored */
    MP_YES = 0,                /* answer to a question */
    MP_NO = -1,                /* answer to a question */
    MP_OUT_OF_MEMORY = -2,     /* an allocation failed, or the result exceeds every record */
    MP_OUT_OF_RANGE = -3,      /* a value that is not allowed, such as a divisor of 0 */
    MP_INVALID_PARAMETER = -4, /* a null pointer, a record without memory, or a bad count */
    MP_UNDEFINED = -5          /* the result does not exist, such as an inverse */
};

/* --- Default precision: global and not locked, to be set before threads use the library ---- */

/* Returns the default precision, initially 64: the number of digits that mp_init allocates. A
 * record that grows gets a multiple of it. */
HX_EXPORT_MP uint32_t mp_get_prec(void);
/* Sets the default precision and returns it; 0 restores 64. */
HX_EXPORT_MP uint32_t mp_set_prec(uint32_t prec);

/* --- Creation, copies and release ---------------------------------------------------------- */

/* Initializes a record with value 0 and memory for as many digits as the default precision. The
 * caller releases it with mp_clear. */
HX_EXPORT_MP int mp_init(mp_int* mp);
/* Initializes a record with value 0 and memory for `digits` digits; 0 is an invalid parameter. */
HX_EXPORT_MP int mp_init_size(mp_int* mp, uint32_t digits);
/* Initializes `count` records; on failure, none. A count below 1 is an invalid parameter. */
HX_EXPORT_MP int mp_init_array(mp_int* mp, int count);
/* Initializes a record with the value and the allocated size of `from`. */
HX_EXPORT_MP int mp_init_copy(mp_int* mp, const mp_int* from);
/* Copies the value of `from` to the initialized record `to`. */
HX_EXPORT_MP int mp_copy(const mp_int* from, mp_int* to);
/* Exchanges two records without copying digits. */
HX_EXPORT_MP int mp_exch(mp_int* a, mp_int* b);
/* Zeroes and frees the digits. Leaves a cleared record unchanged. */
HX_EXPORT_MP int mp_clear(mp_int* mp);
/* Clears `count` records. A count below 1 is an invalid parameter. */
HX_EXPORT_MP int mp_clear_array(mp_int* mp, int count);
/* Sets the value to 0 and keeps the memory. */
HX_EXPORT_MP int mp_zero(mp_int* mp);
/* Sets the value to d. */
HX_EXPORT_MP int mp_set(mp_int* mp, mp_digit d);
/* Sets the value to any long. */
HX_EXPORT_MP int mp_set_int(mp_int* mp, long value);
/* Reduces the allocated memory to the digits in use. */
HX_EXPORT_MP int mp_shrink(mp_int* mp);

/* --- Operations with one digit -------------------------------------------------------------- */

/* sum = a + d */
HX_EXPORT_MP int mp_add_d(const mp_int* a, mp_digit d, mp_int* sum);
/* difference = a - d */
HX_EXPORT_MP int mp_sub_d(const mp_int* a, mp_digit d, mp_int* difference);
/* product = a * d */
HX_EXPORT_MP int mp_mul_d(const mp_int* a, mp_digit d, mp_int* product);
/* q = a / d rounded toward zero; *r is the magnitude of the remainder. d = 0 is out of range. */
HX_EXPORT_MP int mp_div_d(const mp_int* a, mp_digit d, mp_int* q, mp_digit* r);
/* power = a to the power d; any value to the power 0 is 1. */
HX_EXPORT_MP int mp_expt_d(const mp_int* a, mp_digit d, mp_int* power);
/* *r = a modulo d, in 0 to d - 1 even for a negative a. d = 0 is out of range. */
HX_EXPORT_MP int mp_mod_d(const mp_int* a, mp_digit d, mp_digit* r);

/* --- Powers of two: shifts of the magnitude that keep the sign ------------------------------ */

/* product = a * 2 */
HX_EXPORT_MP int mp_mul_2(const mp_int* a, mp_int* product);
/* q = a / 2 rounded toward zero */
HX_EXPORT_MP int mp_div_2(const mp_int* a, mp_int* q);
/* product = a shifted left by `bits` bits */
HX_EXPORT_MP int mp_mul_2d(const mp_int* a, uint32_t bits, mp_int* product);
/* q = a shifted right by `bits` bits; r = the bits shifted out, with the sign of a */
HX_EXPORT_MP int mp_div_2d(const mp_int* a, uint32_t bits, mp_int* q, mp_int* r);
/* power = 2 to the power `bits` */
HX_EXPORT_MP int mp_2expt(uint32_t bits, mp_int* power);

/* --- Signed arithmetic ---------------------------------------------------------------------- */

/* magnitude = |a| */
HX_EXPORT_MP int mp_abs(const mp_int* a, mp_int* magnitude);
/* negated = -a */
HX_EXPORT_MP int mp_neg(const mp_int* a, mp_int* negated);
/* sum = a + b */
HX_EXPORT_MP int mp_add(const mp_int* a, const mp_int* b, mp_int* sum);
/* difference = a - b */
HX_EXPORT_MP int mp_sub(const mp_int* a, const mp_int* b, mp_int* difference);
/* product = a * b */
HX_EXPORT_MP int mp_mul(const mp_int* a, const mp_int* b, mp_int* product);
/* square = a * a */
HX_EXPORT_MP int mp_sqr(const mp_int* a, mp_int* square);
/* q = a / b rounded toward zero; r = the remainder, with the sign of a. b = 0 is out of range. */
HX_EXPORT_MP int mp_div(const mp_int* a, const mp_int* b, mp_int* q, mp_int* r);
/* power = a to the power of the exponent; any value to the power 0 is 1. A negative exponent is out
 * of range. */
HX_EXPORT_MP int mp_expt(const mp_int* a, const mp_int* exponent, mp_int* power);
/* r = a modulo m, in 0 to m - 1. An m below 1 is out of range. */
HX_EXPORT_MP int mp_mod(const mp_int* a, const mp_int* m, mp_int* r);
/* root = the square root of a, rounded down. A negative a is out of range. */
HX_EXPORT_MP int mp_sqrt(const mp_int* a, mp_int* root);

/* --- Modular arithmetic: results are in 0 to m - 1 unless noted otherwise; an m below 1 is out of
 * range */

/* r = (a + b) modulo m */
HX_EXPORT_MP int mp_addmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
/* r = (a - b) modulo m */
HX_EXPORT_MP int mp_submod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
/* r = (a * b) modulo m */
HX_EXPORT_MP int mp_mulmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
/* r = (a * a) modulo m */
HX_EXPORT_MP int mp_sqrmod(const mp_int* a, const mp_int* m, mp_int* r);
/* r = base to the power of the exponent, modulo m. A negative exponent is out of range; the
 * exponent 0 returns 1 even for m = 1. The run time depends on the bits of the exponent: unsuitable
 * for secret exponents where others can measure it. */
HX_EXPORT_MP int mp_exptmod(const mp_int* base, const mp_int* exponent, const mp_int* m, mp_int* r);
/* The same with a one-digit exponent. */
HX_EXPORT_MP int mp_exptmod_d(const mp_int* base, mp_digit exponent, const mp_int* m, mp_int* r);
/* r = the inverse of a modulo m; for a negative a, the inverse in 0 to m - 1 with its sign changed:
 * -3 modulo 7 returns -2. MP_UNDEFINED if a and m have a common divisor. */
HX_EXPORT_MP int mp_invmod(const mp_int* a, const mp_int* m, mp_int* r);

/* --- Comparisons: return 1 for greater, 0 for equal, -1 for less, or MP_INVALID_PARAMETER ---- */

/* Compares a with 0. */
HX_EXPORT_MP int mp_cmp_z(const mp_int* a);
/* Compares a with a digit. */
HX_EXPORT_MP int mp_cmp_d(const mp_int* a, mp_digit d);
/* Compares a with b. */
HX_EXPORT_MP int mp_cmp(const mp_int* a, const mp_int* b);
/* Compares |a| with |b|. */
HX_EXPORT_MP int mp_cmp_mag(const mp_int* a, const mp_int* b);
/* Compares a with any long. */
HX_EXPORT_MP int mp_cmp_int(const mp_int* a, long value);
/* Returns MP_YES for an odd value, MP_NO for an even one, or MP_INVALID_PARAMETER. */
HX_EXPORT_MP int mp_isodd(const mp_int* a);
/* Returns MP_YES for an even value, including 0, MP_NO for an odd one, or MP_INVALID_PARAMETER. */
HX_EXPORT_MP int mp_iseven(const mp_int* a);

/* --- Number theory -------------------------------------------------------------------------- */

/* g = the greatest common divisor, above 0. Two zeros are out of range. */
HX_EXPORT_MP int mp_gcd(const mp_int* a, const mp_int* b, mp_int* g);
/* m = the least common multiple, not negative; 0 if one operand is 0. Two zeros are out of range.
 */
HX_EXPORT_MP int mp_lcm(const mp_int* a, const mp_int* b, mp_int* m);
/* g as in mp_gcd; x and y satisfy a * x + b * y = g. */
HX_EXPORT_MP int mp_xgcd(const mp_int* a, const mp_int* b, mp_int* g, mp_int* x, mp_int* y);

/* --- Binary form: the magnitude, most significant byte first, at least one byte. The signed form
 * starts with a sign byte: written as 0 or 1, and any byte except 0 is read as negative */

/* Reads the signed form. `length` counts all bytes; a length below 1 is an invalid parameter. */
HX_EXPORT_MP int mp_read_signed_bin(mp_int* mp, const unsigned char* bytes, int length);
/* Reads the magnitude of a value that is not negative. `length` as in mp_read_signed_bin. */
HX_EXPORT_MP int mp_read_unsigned_bin(mp_int* mp, const unsigned char* bytes, int length);
/* Writes the signed form: mp_signed_bin_size bytes into the caller's memory. */
HX_EXPORT_MP int mp_to_signed_bin(const mp_int* a, unsigned char* bytes);
/* Writes the magnitude: mp_unsigned_bin_size bytes into the caller's memory. */
HX_EXPORT_MP int mp_to_unsigned_bin(const mp_int* a, unsigned char* bytes);
/* Returns the number of bytes of the signed form, at most INT_MAX, or MP_INVALID_PARAMETER. */
HX_EXPORT_MP int mp_signed_bin_size(const mp_int* a);
/* Returns the number of bytes of the magnitude, at most INT_MAX, or MP_INVALID_PARAMETER. */
HX_EXPORT_MP int mp_unsigned_bin_size(const mp_int* a);
/* Returns the number of bits of the magnitude, 0 for the value 0, at most INT_MAX, or
 * MP_INVALID_PARAMETER. */
HX_EXPORT_MP int mp_count_bits(const mp_int* a);

/* --- Text form: radixes 2 to 64 with the digits 0-9, A-Z, a-z, + and / ----------------------- */

/* Skips characters that are neither a digit nor a sign, reads one optional sign, then digits up to
 * the first other character. Without digits the value is 0. A leading + is the sign even in the
 * radixes 63 and 64, where + is a digit elsewhere. Other radixes are an invalid parameter. */
HX_EXPORT_MP int mp_read_radix(mp_int* mp, const char* text, int radix);
/* Writes the text and a NUL into the caller's memory: at most mp_count_bits + 2 bytes, and one more
 * for a negative value. Other radixes are out of range. */
HX_EXPORT_MP int mp_toradix(const mp_int* a, char* text, int radix);
/* Returns an estimate of the number of characters, which may not include room for the NUL, or
 * MP_INVALID_PARAMETER. */
HX_EXPORT_MP int mp_radix_size(const mp_int* a, int radix);
/* Returns the same estimate, without the 1 added there, for `digits` digits of `bits` bits; 0 if an
 * argument is out of range. */
HX_EXPORT_MP int mp_value_radix_size(int digits, int bits, int radix);
/* Returns the value of a digit of the radix, or -1. Below radix 37, letters of both cases count. */
HX_EXPORT_MP int mp_char2value(char character, int radix);
/* Returns the constant text of a result code, "unknown result code" for any other code. */
HX_EXPORT_MP const char* mp_strerror(int code);

#ifdef __cplusplus
}
#endif

#endif
