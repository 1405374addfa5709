/* Between records and limbs: an operation reads its operands into work memory, computes there, and
 * stores its results at the very end, all or none of them. So a result may be any operand, and a
 * failure leaves everything as it was. */
#ifndef HX_BIGINT_RECORD_H
#define HX_BIGINT_RECORD_H

#include "kernel.h"
#include "mp_int.h"

/* Work memory of an operation; short operations find it on the stack. What came from the heap is
 * wiped, as the digits of a number stood in it. */
enum { HX_SCRATCH_FIXED = 640 };

typedef struct {
    hx_limb* limbs;
    size_t size;
    size_t taken;
    hx_limb fixed[HX_SCRATCH_FIXED];
} hx_scratch;

int hx_scratch_open(hx_scratch* s, size_t limbs);
hx_limb* hx_scratch_take(hx_scratch* s, size_t limbs);
void hx_scratch_close(hx_scratch* s);

/* A signed number in limbs, without zeros at the top: 0 has none. */
typedef struct {
    const hx_limb* limbs;
    size_t n;
    int negative;
} hx_number;

/* A result: the number for a record. The last two fields are the store's own. */
typedef struct {
    mp_int* to;
    hx_number value;
    mp_digit* fresh;
    uint32_t alloc;
} hx_result;

static inline int hx_is_valid(const mp_int* mp) {
    return mp != NULL && mp->dp != NULL;
}

static inline int hx_is_zero(const mp_int* mp) {
    return mp->used == 1 && mp->dp[0] == 0;
}

/* Limbs of the record's value, at least 1. */
static inline size_t hx_limbs(const mp_int* mp) {
    return hx_limbs_of_digits(mp->used);
}

/* Reads a record into limbs taken from s. */
hx_number hx_load(hx_scratch* s, const mp_int* mp);

/* Stores all results or, when memory is short, none. Zeros at the top are cut off. */
int hx_store_all(hx_result* results, size_t count);
int hx_store(mp_int* to, const hx_limb* limbs, size_t n, int negative);

/* Allocates zeroed digits; null when there is no memory. */
mp_digit* hx_new_digits(size_t count);
/* Zeroes and frees. */
void hx_free_digits(mp_digit* digits, size_t count);

/* |value| */
static inline hx_limb hx_magnitude(long value) {
    return value < 0 ? 0 - (hx_limb)value : (hx_limb)value;
}

static inline size_t hx_larger(size_t a, size_t b) {
    return a > b ? a : b;
}

/* A copy with the given sign. */
int hx_copy_signed(const mp_int* a, int negative, mp_int* to);

/* r = a + b for r of one limb more than the longer operand; the result is its length. */
size_t hx_add_signed(hx_limb* r, hx_number a, hx_number b, int* negative);

/* r = a modulo m, in 0 to m - 1, for r of m.n limbs; `scratch` has hx_mod_scratch limbs. */
void hx_mod(hx_limb* r, hx_number a, hx_number m, hx_limb* scratch);
size_t hx_mod_scratch(size_t an, size_t mn);

#endif
