#include "record.h"

#include <assert.h>
#include <stdlib.h>

enum { DefaultPrecision = 64 };

/* Not locked: callers set it before threads use the library. */
static uint32_t precision = DefaultPrecision;

uint32_t mp_get_prec(void) {
    return precision;
}

uint32_t mp_set_prec(uint32_t prec) {
    precision = prec == 0 ? DefaultPrecision : prec;
    return precision;
}

int HxScratchOpen(HxScratch* s, size_t limbs) {
    s->taken = 0;
    s->size = limbs;
    s->limbs = s->fixed;
    if (limbs <= HX_SCRATCH_FIXED)
        return MP_SUCCESS;
    s->limbs = calloc(limbs, sizeof(HxLimb));
    return s->limbs == NULL ? MP_OUT_OF_MEMORY : MP_SUCCESS;
}

HxLimb* HxScratchTake(HxScratch* s, size_t limbs) {
    assert(limbs <= s->size - s->taken);
    HxLimb* const taken = s->limbs + s->taken;
    s->taken += limbs;
    return taken;
}

void HxScratchClose(HxScratch* s) {
    if (s->limbs == s->fixed)
        return;
    HxWipe(s->limbs, s->size * sizeof(HxLimb));
    free(s->limbs);
}

mp_digit* HxNewDigits(size_t count) {
    return calloc(count, sizeof(mp_digit));
}

void HxFreeDigits(mp_digit* digits, size_t count) {
    HxWipe(digits, count * sizeof(mp_digit));
    free(digits);
}

/* Where digits lie in memory like limbs, they are copied as a block. */
#if !defined(HX_BIGINT_PORTABLE) && defined(__BYTE_ORDER__) && \
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define HX_DIGITS_ARE_LIMBS 1
#else
#define HX_DIGITS_ARE_LIMBS 0
#endif

static void DigitsToLimbs(HxLimb* to, const mp_digit* digits, size_t count) {
#if HX_DIGITS_ARE_LIMBS
    if (count % HX_LIMB_DIGITS != 0)
        to[count / HX_LIMB_DIGITS] = 0;
    memcpy(to, digits, count * sizeof(mp_digit));
#else
    HxZero(to, (count + HX_LIMB_DIGITS - 1) / HX_LIMB_DIGITS);
    for (size_t i = 0; i < count; ++i)
        to[i / HX_LIMB_DIGITS] |= (HxLimb)digits[i] << (i % HX_LIMB_DIGITS * HX_DIGIT_BITS);
#endif
}

/* Writes the lowest `count` digits of the limbs. */
static void LimbsToDigits(mp_digit* digits, size_t count, const HxLimb* from) {
#if HX_DIGITS_ARE_LIMBS
    memcpy(digits, from, count * sizeof(mp_digit));
#else
    for (size_t i = 0; i < count; ++i)
        digits[i] = (mp_digit)(from[i / HX_LIMB_DIGITS] >> (i % HX_LIMB_DIGITS * HX_DIGIT_BITS));
#endif
}

HxNumber HxLoad(HxScratch* s, const mp_int* mp) {
    const size_t n = HxLimbs(mp);
    HxLimb* limbs = HxScratchTake(s, n);
    DigitsToLimbs(limbs, mp->dp, mp->used);
    return (HxNumber){limbs, HxNormal(limbs, n), mp->sign != 0};
}

HxLimb HxLowestLimb(const mp_int* mp) {
    HxLimb limb;
    DigitsToLimbs(&limb, mp->dp, mp->used < HX_LIMB_DIGITS ? mp->used : HX_LIMB_DIGITS);
    return limb;
}

/* Digits of the value, at least 1. */
static uint64_t DigitsOf(HxNumber value) {
    const uint64_t digits = (HxBits(value.limbs, value.n) + HX_DIGIT_BITS - 1) / HX_DIGIT_BITS;
    return digits == 0 ? 1 : digits;
}

/* Writes a value without zeros at the top. Digits above the used ones stay zero. */
static void WriteValue(mp_int* to, HxNumber value) {
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

const mp_int* HxSetSmall(HxSmall* small, long value) {
    const HxLimb magnitude = value < 0 ? 0 - (HxLimb)value : (HxLimb)value;
    small->record = (mp_int){.sign = 0, .alloc = HX_LIMB_DIGITS, .used = 1, .dp = small->digits};
    WriteValue(&small->record, (HxNumber){&magnitude, magnitude != 0, value < 0});
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
    const uint64_t rounded = (needed + precision - 1) / precision * precision;
    if (rounded > UINT32_MAX)
        return MP_OUT_OF_MEMORY;
    room->alloc = (uint32_t)rounded;
    room->digits = HxNewDigits((size_t)rounded);
    return room->digits == NULL ? MP_OUT_OF_MEMORY : MP_SUCCESS;
}

static void MoveInto(mp_int* to, Room room) {
    if (room.digits == NULL)
        return;
    HxFreeDigits(to->dp, to->alloc);
    to->dp = room.digits;
    to->alloc = room.alloc;
    to->used = 1;
}

int HxStoreAll(const HxResult* results, size_t count) {
    HxNumber values[HX_MOST_RESULTS];
    Room rooms[HX_MOST_RESULTS];
    for (size_t i = 0; i < count; ++i) {
        values[i] = results[i].value;
        values[i].n = HxNormal(values[i].limbs, values[i].n);
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

int HxStore(mp_int* to, const HxLimb* limbs, size_t n, int negative) {
    const HxResult result = {to, {limbs, n, negative}};
    return HxStoreAll(&result, 1);
}

int HxCopySigned(const mp_int* a, int negative, mp_int* to) {
    HxScratch s;
    int code = HxScratchOpen(&s, HxLimbs(a));
    if (code != MP_SUCCESS)
        return code;
    const HxNumber number = HxLoad(&s, a);
    code = HxStore(to, number.limbs, number.n, negative);
    HxScratchClose(&s);
    return code;
}
