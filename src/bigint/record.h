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
    HxLimb* limbs;
    size_t size;
    size_t taken;
    HxLimb fixed[HX_SCRATCH_FIXED];
} HxScratch;

/* Provides `limbs` limbs, or returns MP_OUT_OF_MEMORY. The values are undefined. */
int HxScratchOpen(HxScratch* s, size_t limbs);
/* Returns the next `limbs` limbs. All calls together must stay within the opened size. */
HxLimb* HxScratchTake(HxScratch* s, size_t limbs);
/* Wipes and frees what came from the heap, because it contains digits of operands. */
void HxScratchClose(HxScratch* s);

/* --- Digits --------------------------------------------------------------------------------- */

/* Allocates zeroed digits; returns null without memory. */
mp_digit* HxNewDigits(size_t count);
/* Zeroes and frees. */
void HxFreeDigits(mp_digit* digits, size_t count);

/* --- Records ------------------------------------------------------------------------------- */

static inline int HxIsValid(const mp_int* mp) {
    return mp != NULL && mp->dp != NULL;
}

static inline int HxIsZero(const mp_int* mp) {
    return mp->used == 1 && mp->dp[0] == 0;
}

/* Limbs of the value, at least 1. */
static inline size_t HxLimbs(const mp_int* mp) {
    return ((size_t)mp->used + HX_LIMB_DIGITS - 1) / HX_LIMB_DIGITS;
}

/* Bits of the magnitude; 0 has none. */
static inline uint64_t HxRecordBits(const mp_int* mp) {
    return (uint64_t)(mp->used - 1) * HX_DIGIT_BITS + HxBitLength(mp->dp[mp->used - 1]);
}

/* A record of one limb that needs no allocation and no mp_clear. */
typedef struct {
    mp_int record;
    mp_digit digits[HX_LIMB_DIGITS];
} HxSmall;

/* Sets the value and returns the record, which lives as long as `small`. */
const mp_int* HxSetSmall(HxSmall* small, long value);

/* Reads a record into limbs taken from s. */
HxNumber HxLoad(HxScratch* s, const mp_int* mp);
/* Returns the lowest limb of the magnitude. */
HxLimb HxLowestLimb(const mp_int* mp);

/* A number and the record that receives it. */
typedef struct {
    mp_int* to;
    HxNumber value;
} HxResult;

enum { HX_MOST_RESULTS = 3 };

/* Stores all results or, without memory, none. Cuts off zeros at the top. */
int HxStoreAll(const HxResult* results, size_t count);
int HxStore(mp_int* to, const HxLimb* limbs, size_t n, int negative);
/* Stores the magnitude of `a` with the given sign. */
int HxCopySigned(const mp_int* a, int negative, mp_int* to);

#endif
