#include "record.h"

#include <assert.h>
#include <stdlib.h>

enum { DefaultPrecision = 64 };

/* Not locked: callers set it before threads use the library. */
static uint32_t g_precision = DefaultPrecision;

uint32_t mp_get_prec(void) {
    return g_precision;
}

uint32_t mp_set_prec(uint32_t prec) {
    g_precision = prec == 0 ? DefaultPrecision : prec;
    return g_precision;
}

int hx_scratch_open(hx_scratch* s, size_t limbs) {
    s->taken = 0;
    s->size = limbs;
    s->limbs = s->fixed;
    if (limbs <= HX_SCRATCH_FIXED)
        return MP_SUCCESS;
    s->limbs = calloc(limbs, sizeof(hx_limb));
    return s->limbs == NULL ? MP_OUT_OF_MEMORY : MP_SUCCESS;
}

hx_limb* hx_scratch_take(hx_scratch* s, size_t limbs) {
    assert(limbs <= s->size - s->taken);
    hx_limb* const taken = s->limbs + s->taken;
    s->taken += limbs;
    return taken;
}

void hx_scratch_close(hx_scratch* s) {
    if (s->limbs == s->fixed)
        return;
    hx_wipe(s->limbs, s->size * sizeof(hx_limb));
    free(s->limbs);
}

mp_digit* hx_new_digits(size_t count) {
    return calloc(count, sizeof(mp_digit));
}

void hx_free_digits(mp_digit* digits, size_t count) {
    hx_wipe(digits, count * sizeof(mp_digit));
    free(digits);
}

/* Where digits lie in memory like limbs, they are copied as a block. */
#if !defined(HX_BIGINT_PORTABLE) && defined(__BYTE_ORDER__) && \
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define HX_DIGITS_ARE_LIMBS 1
#else
#define HX_DIGITS_ARE_LIMBS 0
#endif

static void DigitsToLimbs(hx_limb* to, const mp_digit* digits, size_t count) {
#if HX_DIGITS_ARE_LIMBS
    if (count % HX_LIMB_DIGITS != 0)
        to[count / HX_LIMB_DIGITS] = 0;
    memcpy(to, digits, count * sizeof(mp_digit));
#else
    hx_zero(to, (count + HX_LIMB_DIGITS - 1) / HX_LIMB_DIGITS);
    for (size_t i = 0; i < count; ++i)
        to[i / HX_LIMB_DIGITS] |= (hx_limb)digits[i] << (i % HX_LIMB_DIGITS * HX_DIGIT_BITS);
#endif
}

/* Writes the lowest `count` digits of the limbs. */
static void LimbsToDigits(mp_digit* digits, size_t count, const hx_limb* from) {
#if HX_DIGITS_ARE_LIMBS
    memcpy(digits, from, count * sizeof(mp_digit));
#else
    for (size_t i = 0; i < count; ++i)
        digits[i] = (mp_digit)(from[i / HX_LIMB_DIGITS] >> (i % HX_LIMB_DIGITS * HX_DIGIT_BITS));
#endif
}

hx_number hx_load(hx_scratch* s, const mp_int* mp) {
    const size_t n = hx_limbs(mp);
    hx_limb* limbs = hx_scratch_take(s, n);
    DigitsToLimbs(limbs, mp->dp, mp->used);
    return (hx_number){limbs, hx_normal(limbs, n), mp->sign != 0};
}

hx_limb hx_lowest_limb(const mp_int* mp) {
    hx_limb limb;
    DigitsToLimbs(&limb, mp->dp, mp->used < HX_LIMB_DIGITS ? mp->used : HX_LIMB_DIGITS);
    return limb;
}

/* Digits of the value, at least 1. */
static uint64_t DigitsOf(hx_number value) {
    const uint64_t digits = (hx_bits(value.limbs, value.n) + HX_DIGIT_BITS - 1) / HX_DIGIT_BITS;
    return digits == 0 ? 1 : digits;
}

/* Writes a value without zeros at the top. Digits above the used ones stay zero. */
static void WriteValue(mp_int* to, hx_number value) {
    const uint32_t used = (uint32_t)DigitsOf(value);
    if (value.n == 0)
        to->dp[0] = 0;
    else
        LimbsToDigits(to->dp, used, value.limbs);
    if (to->used > used)
        memset(to->dp + used, 0, (to->used - used) * sizeof(mp_digit));
    to->used = used;
    to->sign = value.n > 0 && value.negative;
}

const mp_int* hx_set_small(hx_small* small, long value) {
    const hx_limb magnitude = value < 0 ? 0 - (hx_limb)value : (hx_limb)value;
    small->record = (mp_int){.sign = 0, .alloc = HX_LIMB_DIGITS, .used = 1, .dp = small->digits};
    WriteValue(&small->record, (hx_number){&magnitude, magnitude != 0, value < 0});
    return &small->record;
}

/* Room for a result: `digits` is null if the record has room already. */
typedef struct {
    mp_digit* digits;
    uint32_t alloc;
} Room;

static int FindRoom(const mp_int* to, uint64_t needed, Room* room) {
    room->digits = NULL;
    if (needed <= to->alloc)
        return MP_SUCCESS;
    const uint64_t rounded = (needed + g_precision - 1) / g_precision * g_precision;
    if (rounded > UINT32_MAX)
        return MP_OUT_OF_MEMORY;
    room->alloc = (uint32_t)rounded;
    room->digits = hx_new_digits((size_t)rounded);
    return room->digits == NULL ? MP_OUT_OF_MEMORY : MP_SUCCESS;
}

static void MoveInto(mp_int* to, Room room) {
    if (room.digits == NULL)
        return;
    hx_free_digits(to->dp, to->alloc);
    to->dp = room.digits;
    to->alloc = room.alloc;
    to->used = 1;
}

int hx_store_all(const hx_result* results, size_t count) {
    hx_number values[HX_MOST_RESULTS];
    Room rooms[HX_MOST_RESULTS];
    for (size_t i = 0; i < count; ++i) {
        values[i] = results[i].value;
        values[i].n = hx_normal(values[i].limbs, values[i].n);
        const int code = FindRoom(results[i].to, DigitsOf(values[i]), &rooms[i]);
        if (code != MP_SUCCESS) {
            while (i-- > 0)
                free(rooms[i].digits);
            return code;
        }
    }
    for (size_t i = 0; i < count; ++i) {
        MoveInto(results[i].to, rooms[i]);
        WriteValue(results[i].to, values[i]);
    }
    return MP_SUCCESS;
}

int hx_store(mp_int* to, const hx_limb* limbs, size_t n, int negative) {
    const hx_result result = {to, {limbs, n, negative}};
    return hx_store_all(&result, 1);
}

int hx_copy_signed(const mp_int* a, int negative, mp_int* to) {
    hx_scratch s;
    int code = hx_scratch_open(&s, hx_limbs(a));
    if (code != MP_SUCCESS)
        return code;
    const hx_number number = hx_load(&s, a);
    code = hx_store(to, number.limbs, number.n, negative);
    hx_scratch_close(&s);
    return code;
}
