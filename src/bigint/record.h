/* Records and the memory of an operation. An operation copies its operands into scratch memory,
 * computes there, and stores all results or none at the very end. Therefore a result may be any
 * operand, and a failure changes nothing. */
#ifndef HX_BIGINT_RECORD_H
#define HX_BIGINT_RECORD_H

#include "mp_int.h"
#include "number.h"

enum { HX_DIGIT_BITS = 16, HX_LIMB_DIGITS = HX_LIMB_BITS / HX_DIGIT_BITS };

/* --- Scratch memory of one operation: on the stack if it is short ------------------------- */

enum { HX_SCRATCH_FIXED = 640 };

typedef struct {
    hx_limb* limbs;
    size_t size;
    size_t taken;
    hx_limb fixed[HX_SCRATCH_FIXED];
} hx_scratch;

/* Provides `limbs` limbs, or returns MP_OUT_OF_MEMORY. The values are undefined. */
int hx_scratch_open(hx_scratch* s, size_t limbs);
/* Returns the next `limbs` limbs. All calls together must stay within the opened size. */
hx_limb* hx_scratch_take(hx_scratch* s, size_t limbs);
/* Wipes and frees what came from the heap, because it contains digits of operands. */
void hx_scratch_close(hx_scratch* s);

/* --- Digits --------------------------------------------------------------------------------- */

/* Allocates zeroed digits; returns null without memory. */
mp_digit* hx_new_digits(size_t count);
/* Zeroes and frees. */
void hx_free_digits(mp_digit* digits, size_t count);

/* --- Records ------------------------------------------------------------------------------- */

static inline int hx_is_valid(const mp_int* mp) {
    return mp != NULL && mp->dp != NULL;
}

static inline int hx_is_zero(const mp_int* mp) {
    return mp->used == 1 && mp->dp[0] == 0;
}

/* Limbs of the value, at least 1. */
static inline size_t hx_limbs(const mp_int* mp) {
    return ((size_t)mp->used + HX_LIMB_DIGITS - 1) / HX_LIMB_DIGITS;
}

/* Bits of the magnitude; 0 has none. */
static inline uint64_t hx_record_bits(const mp_int* mp) {
    return (uint64_t)(mp->used - 1) * HX_DIGIT_BITS + hx_bit_length(mp->dp[mp->used - 1]);
}

/* A record of one limb that needs no allocation and no mp_clear. */
typedef struct {
    mp_int record;
    mp_digit digits[HX_LIMB_DIGITS];
} hx_small;

/* Sets the value and returns the record, which lives as long as `small`. */
const mp_int* hx_set_small(hx_small* small, long value);

/* Reads a record into limbs taken from s. */
hx_number hx_load(hx_scratch* s, const mp_int* mp);
/* Returns the lowest limb of the magnitude. */
hx_limb hx_lowest_limb(const mp_int* mp);

/* A number and the record that receives it. */
typedef struct {
    mp_int* to;
    hx_number value;
} hx_result;

enum { HX_MOST_RESULTS = 3 };

/* Stores all results or, without memory, none. Cuts off zeros at the top. */
int hx_store_all(const hx_result* results, size_t count);
int hx_store(mp_int* to, const hx_limb* limbs, size_t n, int negative);
/* Stores the magnitude of `a` with the given sign. */
int hx_copy_signed(const mp_int* a, int negative, mp_int* to);

#endif
