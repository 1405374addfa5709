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

#define HX_EXPORT_MP __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* One of 65536 values. */
typedef uint16_t mp_digit;

/* A record. The order of the fields is the library's binary interface. */
typedef struct {
    uint8_t sign;   /* 0: zero or positive, 1: negative */
    uint32_t alloc; /* digits that the memory holds; 0 in a cleared record */
    uint32_t used;  /* digits in use, 1 or more; 0 in a cleared record */
    mp_digit* dp;   /* the digits, least significant first; null in a cleared record */
} mp_int;

/* What the functions return unless it says otherwise. mp_strerror has the texts. */
enum {
    MP_SUCCESS = 0,            /* the results are there */
    MP_YES = 0,                /* to a question */
    MP_NO = -1,                /* to a question */
    MP_OUT_OF_MEMORY = -2,     /* an allocation failed */
    MP_OUT_OF_RANGE = -3,      /* a value that is not allowed, such as a divisor of 0 */
    MP_INVALID_PARAMETER = -4, /* a null pointer, a record without memory or a bad count */
    MP_UNDEFINED = -5          /* there is no such result, such as no inverse */
};

/* --- Precision: a plain global, to be set before threads use the library ------------------ */

/* The digits that mp_init allocates, and whose multiples growing records take: 64 at first. */
HX_EXPORT_MP uint32_t mp_get_prec(void);
/* Sets the precision, or 64 again for 0, and returns the one in force then. */
HX_EXPORT_MP uint32_t mp_set_prec(uint32_t prec);

/* --- Life of a record ---------------------------------------------------------------------- */

/* A new record of value 0, with memory for as many digits as the precision says. */
HX_EXPORT_MP int mp_init(mp_int* mp);
/* The same with memory for so many digits. A size of 0 is an invalid parameter. */
HX_EXPORT_MP int mp_init_size(mp_int* mp, uint32_t digits);
/* So many records, all or none. A count below 1 is an invalid parameter. */
HX_EXPORT_MP int mp_init_array(mp_int* mp, int count);
/* A new record with the value and the allocated size of `from`. */
HX_EXPORT_MP int mp_init_copy(mp_int* mp, const mp_int* from);
/* Gives `to`, which was set up before, the value of `from`. */
HX_EXPORT_MP int mp_copy(const mp_int* from, mp_int* to);
/* Exchanges the contents without copying digits. */
HX_EXPORT_MP int mp_exch(mp_int* a, mp_int* b);
/* Zeroes the digits and frees them. A record that was cleared before stays as it is. */
HX_EXPORT_MP int mp_clear(mp_int* mp);
/* mp_clear for so many records. A count below 1 is an invalid parameter. */
HX_EXPORT_MP int mp_clear_array(mp_int* mp, int count);
/* The value becomes 0; the memory stays. */
HX_EXPORT_MP int mp_zero(mp_int* mp);
/* The value becomes that of the digit. */
HX_EXPORT_MP int mp_set(mp_int* mp, mp_digit d);
/* The value becomes that of the number, which may be any long. */
HX_EXPORT_MP int mp_set_int(mp_int* mp, long value);
/* Gives back the memory of the digits that are not in use. */
HX_EXPORT_MP int mp_shrink(mp_int* mp);

/* --- With one digit ------------------------------------------------------------------------ */

/* a + d */
HX_EXPORT_MP int mp_add_d(const mp_int* a, mp_digit d, mp_int* sum);
/* a - d */
HX_EXPORT_MP int mp_sub_d(const mp_int* a, mp_digit d, mp_int* difference);
/* a * d */
HX_EXPORT_MP int mp_mul_d(const mp_int* a, mp_digit d, mp_int* product);
/* The quotient is cut towards zero; *r is the magnitude of the remainder. d = 0 is out of range. */
HX_EXPORT_MP int mp_div_d(const mp_int* a, mp_digit d, mp_int* q, mp_digit* r);
/* a to the power d; anything to the power 0 is 1. */
HX_EXPORT_MP int mp_expt_d(const mp_int* a, mp_digit d, mp_int* power);
/* *r is in 0 to d - 1 also for a negative value. d = 0 is out of range. */
HX_EXPORT_MP int mp_mod_d(const mp_int* a, mp_digit d, mp_digit* r);

/* --- Powers of two: shifts work on the magnitude and keep the sign ------------------------- */

/* a * 2 */
HX_EXPORT_MP int mp_mul_2(const mp_int* a, mp_int* product);
/* a / 2, cut towards zero */
HX_EXPORT_MP int mp_div_2(const mp_int* a, mp_int* q);
/* a shifted left by so many bits */
HX_EXPORT_MP int mp_mul_2d(const mp_int* a, uint32_t bits, mp_int* product);
/* a shifted right by so many bits, and the bits that fell out, with the sign of a */
HX_EXPORT_MP int mp_div_2d(const mp_int* a, uint32_t bits, mp_int* q, mp_int* r);
/* 2 to the power `bits` */
HX_EXPORT_MP int mp_2expt(uint32_t bits, mp_int* power);

/* --- Signed arithmetic --------------------------------------------------------------------- */

/* a without its sign */
HX_EXPORT_MP int mp_abs(const mp_int* a, mp_int* magnitude);
/* -a */
HX_EXPORT_MP int mp_neg(const mp_int* a, mp_int* negated);
/* a + b */
HX_EXPORT_MP int mp_add(const mp_int* a, const mp_int* b, mp_int* sum);
/* a - b */
HX_EXPORT_MP int mp_sub(const mp_int* a, const mp_int* b, mp_int* difference);
/* a * b */
HX_EXPORT_MP int mp_mul(const mp_int* a, const mp_int* b, mp_int* product);
/* a * a */
HX_EXPORT_MP int mp_sqr(const mp_int* a, mp_int* square);
/* The quotient is cut towards zero, and the remainder has the sign of a. b = 0 is out of range. */
HX_EXPORT_MP int mp_div(const mp_int* a, const mp_int* b, mp_int* q, mp_int* r);
/* a to the power of the exponent; anything to the power 0 is 1. A negative exponent is out of
 * range. */
HX_EXPORT_MP int mp_expt(const mp_int* a, const mp_int* exponent, mp_int* power);
/* a modulo m, in 0 to m - 1. An m below 1 is out of range. */
HX_EXPORT_MP int mp_mod(const mp_int* a, const mp_int* m, mp_int* r);
/* The square root, rounded down; a negative value is out of range. */
HX_EXPORT_MP int mp_sqrt(const mp_int* a, mp_int* root);

/* --- Modulo m, below 1 out of range; results are in 0 to m - 1 unless it says otherwise ----- */

/* (a + b) modulo m */
HX_EXPORT_MP int mp_addmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
/* (a - b) modulo m */
HX_EXPORT_MP int mp_submod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
/* (a * b) modulo m */
HX_EXPORT_MP int mp_mulmod(const mp_int* a, const mp_int* b, const mp_int* m, mp_int* r);
/* (a * a) modulo m */
HX_EXPORT_MP int mp_sqrmod(const mp_int* a, const mp_int* m, mp_int* r);
/* The power of the base modulo m. A negative exponent is out of range; an exponent of 0 gives 1,
 * also for m = 1. The time depends on the exponent's bits: not for secrets that others can time. */
HX_EXPORT_MP int mp_exptmod(const mp_int* base, const mp_int* exponent, const mp_int* m, mp_int* r);
/* The same with one digit as the exponent. */
HX_EXPORT_MP int mp_exptmod_d(const mp_int* base, mp_digit exponent, const mp_int* m, mp_int* r);
/* The inverse of a in 0 to m - 1, with its sign changed if a is negative: -3 modulo 7 gives -2.
 * MP_UNDEFINED where a and m have a common divisor. */
HX_EXPORT_MP int mp_invmod(const mp_int* a, const mp_int* m, mp_int* r);

/* --- Comparisons return 1, 0 or -1 or, for a null pointer, MP_INVALID_PARAMETER ------------ */

/* a with 0 */
HX_EXPORT_MP int mp_cmp_z(const mp_int* a);
/* a with a digit */
HX_EXPORT_MP int mp_cmp_d(const mp_int* a, mp_digit d);
/* a with b */
HX_EXPORT_MP int mp_cmp(const mp_int* a, const mp_int* b);
/* a with b, without regard to the signs */
HX_EXPORT_MP int mp_cmp_mag(const mp_int* a, const mp_int* b);
/* a with a number */
HX_EXPORT_MP int mp_cmp_int(const mp_int* a, long value);
/* MP_YES, MP_NO or the code of a failure. */
HX_EXPORT_MP int mp_isodd(const mp_int* a);
/* The same for the other half of the numbers, 0 among them. */
HX_EXPORT_MP int mp_iseven(const mp_int* a);

/* --- Number theory ------------------------------------------------------------------------- */

/* The greatest common divisor, above 0. Two zeros are out of range. */
HX_EXPORT_MP int mp_gcd(const mp_int* a, const mp_int* b, mp_int* g);
/* The least common multiple, not negative. Two zeros are out of range; with one it is 0. */
HX_EXPORT_MP int mp_lcm(const mp_int* a, const mp_int* b, mp_int* m);
/* The divisor of mp_gcd, and x and y with a * x + b * y = g. */
HX_EXPORT_MP int mp_xgcd(const mp_int* a, const mp_int* b, mp_int* g, mp_int* x, mp_int* y);

/* --- Binary form: the magnitude with the most significant byte first, at least one byte; the
 * signed form has one byte before it, 0 or 1 when written, anything but 0 for negative when read */

/* Reads the signed form. `length` counts all bytes; below 1 it is an invalid parameter. */
HX_EXPORT_MP int mp_read_signed_bin(mp_int* mp, const unsigned char* bytes, int length);
/* Reads the magnitude, under the same rules; the value is not negative. */
HX_EXPORT_MP int mp_read_unsigned_bin(mp_int* mp, const unsigned char* bytes, int length);
/* Writes the signed form, mp_signed_bin_size bytes. */
HX_EXPORT_MP int mp_to_signed_bin(const mp_int* a, unsigned char* bytes);
/* Writes the magnitude, mp_unsigned_bin_size bytes. */
HX_EXPORT_MP int mp_to_unsigned_bin(const mp_int* a, unsigned char* bytes);
/* The bytes of the signed form, INT_MAX at most, or the code of a failure. */
HX_EXPORT_MP int mp_signed_bin_size(const mp_int* a);
/* The bytes of the magnitude, in the same way. */
HX_EXPORT_MP int mp_unsigned_bin_size(const mp_int* a);
/* The bits of the magnitude, in the same way; 0 has none. */
HX_EXPORT_MP int mp_count_bits(const mp_int* a);

/* --- Text form: radixes 2 to 64 over 0-9, A-Z, a-z, + and / -------------------------------- */

/* Skips what is neither a digit nor a sign, takes one sign, and reads digits up to the first other
 * character; without any digit the value is 0. A leading + is the sign also in the radixes 63 and
 * 64, where it is a digit elsewhere. Other radixes are an invalid parameter. */
HX_EXPORT_MP int mp_read_radix(mp_int* mp, const char* text, int radix);
/* Writes the text and its NUL, at most mp_count_bits + 2 bytes, and one more for a negative value.
 * Other radixes are out of range. */
HX_EXPORT_MP int mp_toradix(const mp_int* a, char* text, int radix);
/* An estimate of the characters: it is no more than that, and may leave no room for the NUL. */
HX_EXPORT_MP int mp_radix_size(const mp_int* a, int radix);
/* The same estimate, without its added 1, for so many digits of so many bits; 0 if any argument is
 * out of range. */
HX_EXPORT_MP int mp_value_radix_size(int digits, int bits, int radix);
/* The value of a digit of the radix, or -1. Below radix 37 letters count in either case. */
HX_EXPORT_MP int mp_char2value(char character, int radix);
/* The text of a result code: a constant, never null, "unknown result code" for any other. */
HX_EXPORT_MP const char* mp_strerror(int code);

#ifdef __cplusplus
}
#endif

#endif
