/* Signed integers of any size for C11 and C++.
 *
 * An mp_int belongs to its caller, who sets it up with one of the mp_init functions and gives its
 * memory back with mp_clear. Its digits have 16 bits and stand least significant first; `used` of
 * the `alloc` allocated ones are in use. The top digit is not 0 unless the value is 0, which is
 * one digit 0 with sign 0: there is no negative zero. Callers may read the fields.
 *
 * Results come through the last arguments, and every result may be the same record as any operand.
 * Where a function has several results they should be different records; otherwise the last one
 * stays. A function that fails leaves its results as they were. A null pointer, or a record without
 * memory, is an invalid parameter, which is found before a value out of range is.
 *
 * The functions share nothing but the default precision, and may run in several threads as long as
 * each record is used by one at a time. */
#ifndef HX_MP_INT_H
#define HX_MP_INT_H

#include <stdint.h>

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint16_t mp_digit;

typedef struct {
    uint8_t sign; /* 0: zero or positive, 1: negative */
    uint32_t alloc;
    uint32_t used;
    mp_digit* dp;
} mp_int;

/* What the functions return unless it says otherwise. mp_strerror has the texts. */
enum {
    MP_SUCCESS = 0,
    MP_YES = 0,
    MP_NO = -1,
    MP_OUT_OF_MEMORY = -2,
    MP_OUT_OF_RANGE = -3,
    MP_INVALID_PARAMETER = -4,
    MP_UNDEFINED = -5
};

/* --- Precision: a plain global, to be set before threads use the library ------------------ */

/* The digits that mp_init allocates, and whose multiples growing records take: 64 at first. */
HX_EXPORT uint32_t mp_get_prec(void);
/* Sets the precision, or 64 again for 0, and returns the one in force then. */
HX_EXPORT uint32_t mp_set_prec(uint32_t prec);

/* --- Life of a record ---------------------------------------------------------------------- */

/* New records of value 0. A size or a count below 1 is an invalid parameter. */
HX_EXPORT int mp_init(mp_int* mp);
HX_EXPORT int mp_init_size(mp_int* mp, uint32_t digits);
HX_EXPORT int mp_init_array(mp_int* mp, int count);
/* A new record with the value and the allocated size of `from`. */
HX_EXPORT int mp_init_copy(mp_int* mp, const mp_int* from);
HX_EXPORT int mp_copy(const mp_int* from, mp_int* to);
/* Exchanges the contents without copying digits. */
HX_EXPORT int mp_exch(mp_int* a, mp_int* b);
/* Zeroes the digits and frees them. A record that was cleared before stays as it is. */
HX_EXPORT int mp_clear(mp_int* mp);
HX_EXPORT int mp_clear_array(mp_int* mp, int count);
HX_EXPORT int mp_zero(mp_int* mp);
HX_EXPORT int mp_set(mp_int* mp, mp_digit d);
HX_EXPORT int mp_set_int(mp_int* mp, long value);
/* Gives back the memory of the digits that are not in use. */
HX_EXPORT int mp_shrink(mp_int* mp);

/* --- With one digit ------------------------------------------------------------------------ */

HX_EXPORT int mp_add_d(const mp_int* a, mp_digit d, mp_int* sum);
HX_EXPORT int mp_sub_d(const mp_int* a, mp_digit d, mp_int* difference);
HX_EXPORT int mp_mul_d(const mp_int* a, mp_digit d, mp_int* product);
/* The quotient is cut towards zero; *r is the magnitude of the remainder. */
HX_EXPORT int mp_div_d(const mp_int* a, mp_digit d, mp_int* q, mp_digit* r);
HX_EXPORT int mp_expt_d(const mp_int* a, mp_digit d, mp_int* power);
/* *r is in 0 to d - 1 also for a negative value. */
HX_EXPORT int mp_mod_d(const mp_int* a, mp_digit d, mp_digit* r);

/* --- Powers of two: shifts work on the magnitude and keep the sign ------------------------- */

HX_EXPORT int mp_mul_2(const mp_int* a, mp_int* product);
HX_EXPORT int mp_div_2(const mp_int* a, mp_int* q);
HX_EXPORT int mp_mul_2d(const mp_int* a, uint32_t bits, mp_int* product);
HX_EXPORT int mp_div_2d(const mp_int* a, uint32_t bits, mp_int* q, mp_int* r);
HX_EXPORT int mp_2expt(uint32_t bits, mp_int* power);

/* --- Signed arithmetic --------------------------------------------------------------------- */

HX_EXPORT int mp_abs(const mp_int* a, mp_int* magnitude);
HX_EXPORT int mp_neg(const mp_int* a, mp_int* negated);
HX_EXPORT int mp_add(const mp_int* a, const mp_int* b, mp_int* sum);
HX_EXPORT int mp_sub(const mp_int* a, const mp_int* b, mp_int* difference);
HX_EXPORT int mp_mul(const mp_int* a, const mp_int* b, mp_int* product);
HX_EXPORT int mp_sqr(const mp_int* a, mp_int* square);
/* The quotient is cut towards zero, and the remainder has the sign of a. b = 0 is out of range. */
HX_EXPORT int mp_div(const mp_int* a, const mp_int* b, mp_int* q, mp_int* r);
/* The exponent is not negative; anything to the power 0 is 1. */
HX_EXPORT int mp_expt(const mp_int* a, const mp_int* exponent, mp_int* power);
/* a modulo m in 0 to m - 1. */
HX_EXPORT int mp_mod(const mp_int* a, const mp_int* m, mp_int* r);
/* Rounded down; a negative value is out of range. */
HX_EXPORT int mp_sqrt(const mp_int* a, mp_int* root);

/* --- Modulo m, which is above 0; results are in 0 to m - 1 unless it says otherwise -------- */

HX_EXPORT int mp_addmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
HX_EXPORT int mp_submod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
HX_EXPORT int mp_mulmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
HX_EXPORT int mp_sqrmod(const mp_int* a, const mp_int* m, mp_int* r);
/* A negative exponent is out of range; an exponent of 0 gives 1, also for m = 1. */
HX_EXPORT int mp_exptmod(const mp_int* base, const mp_int* exponent, const mp_int* m, mp_int* r);
HX_EXPORT int mp_exptmod_d(const mp_int* base, mp_digit exponent, const mp_int* m, mp_int* r);
/* The inverse of a in 0 to m - 1, with its sign changed if a is negative: -3 modulo 7 gives -2.
 * MP_UNDEFINED where a and m have a common divisor. */
HX_EXPORT int mp_invmod(const mp_int* a, const mp_int* m, mp_int* r);

/* --- Comparisons return 1, 0 or -1 or, for a null pointer, MP_INVALID_PARAMETER ------------ */

HX_EXPORT int mp_cmp_z(const mp_int* a);
HX_EXPORT int mp_cmp_d(const mp_int* a, mp_digit d);
HX_EXPORT int mp_cmp(const mp_int* a, const mp_int* b);
/* Without regard to the signs. */
HX_EXPORT int mp_cmp_mag(const mp_int* a, const mp_int* b);
HX_EXPORT int mp_cmp_int(const mp_int* a, long value);
/* MP_YES or MP_NO. */
HX_EXPORT int mp_isodd(const mp_int* a);
HX_EXPORT int mp_iseven(const mp_int* a);

/* --- Number theory ------------------------------------------------------------------------- */

/* Never negative. Of two zeros, all three are out of range; mp_lcm with one zero is 0. */
HX_EXPORT int mp_gcd(const mp_int* a, const mp_int* b, mp_int* g);
HX_EXPORT int mp_lcm(const mp_int* a, const mp_int* b, mp_int* m);
/* Also x and y with a * x + b * y = g. */
HX_EXPORT int mp_xgcd(const mp_int* a, const mp_int* b, mp_int* g, mp_int* x, mp_int* y);

/* --- Binary form: the magnitude with the most significant byte first, at least one byte; the
 * signed form has one byte before it, 0 or 1 when written, anything but 0 for negative when read */

/* `length` counts all bytes; below 1 it is an invalid parameter. */
HX_EXPORT int mp_read_signed_bin(mp_int* mp, const unsigned char* bytes, int length);
HX_EXPORT int mp_read_unsigned_bin(mp_int* mp, const unsigned char* bytes, int length);
/* These write as many bytes as the functions below tell. */
HX_EXPORT int mp_to_signed_bin(const mp_int* a, unsigned char* bytes);
HX_EXPORT int mp_to_unsigned_bin(const mp_int* a, unsigned char* bytes);
/* Counts, at most INT_MAX; 0 has no bits. */
HX_EXPORT int mp_signed_bin_size(const mp_int* a);
HX_EXPORT int mp_unsigned_bin_size(const mp_int* a);
HX_EXPORT int mp_count_bits(const mp_int* a);

/* --- Text form: radixes 2 to 64 over 0-9, A-Z, a-z, + and / -------------------------------- */

/* Skips what is neither a digit nor a sign, takes one sign, and reads digits up to the first other
 * character; without any digit the value is 0. A leading + is the sign also in the radixes 63 and
 * 64, where it is a digit elsewhere. Other radixes are an invalid parameter. */
HX_EXPORT int mp_read_radix(mp_int* mp, const char* text, int radix);
/* Writes the text and its NUL, at most mp_count_bits + 2 bytes, and one more for a negative value.
 * Other radixes are out of range. */
HX_EXPORT int mp_toradix(const mp_int* a, char* text, int radix);
/* An estimate of the characters: it is no more than that, and may leave no room for the NUL. */
HX_EXPORT int mp_radix_size(const mp_int* a, int radix);
/* The same estimate, without its added 1, for so many digits of so many bits; 0 if any argument is
 * out of range. */
HX_EXPORT int mp_value_radix_size(int digits, int bits, int radix);
/* The value of a digit of the radix, or -1. Below radix 37 letters count in either case. */
HX_EXPORT int mp_char2value(char character, int radix);
/* Never null. */
HX_EXPORT const char* mp_strerror(int code);

#ifdef __cplusplus
}
#endif

#endif
