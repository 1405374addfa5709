/* Creation, copies and release of records. */
#include <stdlib.h>

#include "record.h"

int mp_init(mp_int* mp) {
    return mp_init_size(mp, mp_get_prec());
}

int mp_init_size(mp_int* mp, uint32_t digits) {
    if (mp == NULL || digits == 0)
        return MP_INVALID_PARAMETER;
    mp_digit* fresh = HxNewDigits(digits);
    if (fresh == NULL)
        return MP_OUT_OF_MEMORY;
    *mp = (mp_int){.sign = 0, .alloc = digits, .used = 1, .dp = fresh};
    return MP_SUCCESS;
}

/* Writes no record before the memory for all of them is allocated. */
int mp_init_array(mp_int* mp, int count) {
    if (mp == NULL || count < 1)
        return MP_INVALID_PARAMETER;
    const uint32_t alloc = mp_get_prec();
    mp_digit** fresh = calloc((size_t)count, sizeof(mp_digit*));
    int allocated = 0;
    while (fresh != NULL && allocated < count && (fresh[allocated] = HxNewDigits(alloc)) != NULL)
        ++allocated;
    for (int i = 0; i < allocated; ++i) {
        if (allocated == count)
            mp[i] = (mp_int){.sign = 0, .alloc = alloc, .used = 1, .dp = fresh[i]};
        else
            free(fresh[i]);
    }
    free(fresh);
    return allocated == count ? MP_SUCCESS : MP_OUT_OF_MEMORY;
}

int mp_init_copy(mp_int* mp, const mp_int* from) {
    if (mp == NULL || !HxIsValid(from))
        return MP_INVALID_PARAMETER;
    mp_digit* fresh = HxNewDigits(from->alloc);
    if (fresh == NULL)
        return MP_OUT_OF_MEMORY;
    memcpy(fresh, from->dp, from->used * sizeof(mp_digit));
    *mp = (mp_int){.sign = from->sign, .alloc = from->alloc, .used = from->used, .dp = fresh};
    return MP_SUCCESS;
}

int mp_copy(const mp_int* from, mp_int* to) {
    if (!HxIsValid(from) || !HxIsValid(to))
        return MP_INVALID_PARAMETER;
    return from == to ? MP_SUCCESS : HxCopySigned(from, from->sign != 0, to);
}

int mp_exch(mp_int* a, mp_int* b) {
    if (a == NULL || b == NULL)
        return MP_INVALID_PARAMETER;
    const mp_int first = *a;
    *a = *b;
    *b = first;
    return MP_SUCCESS;
}

int mp_clear(mp_int* mp) {
    if (mp == NULL)
        return MP_INVALID_PARAMETER;
    if (mp->dp != NULL)
        HxFreeDigits(mp->dp, mp->alloc);
    *mp = (mp_int){.sign = 0, .alloc = 0, .used = 0, .dp = NULL};
    return MP_SUCCESS;
}

int mp_clear_array(mp_int* mp, int count) {
    if (mp == NULL || count < 1)
        return MP_INVALID_PARAMETER;
    for (int i = 0; i < count; ++i)
        mp_clear(&mp[i]);
    return MP_SUCCESS;
}

int mp_zero(mp_int* mp) {
    return mp_set_int(mp, 0);
}

int mp_set(mp_int* mp, mp_digit d) {
    return mp_set_int(mp, d);
}

int mp_set_int(mp_int* mp, long value) {
    if (!HxIsValid(mp))
        return MP_INVALID_PARAMETER;
    HxSmall small;
    return HxCopySigned(HxSetSmall(&small, value), value < 0, mp);
}

int mp_shrink(mp_int* mp) {
    if (!HxIsValid(mp))
        return MP_INVALID_PARAMETER;
    if (mp->used == mp->alloc)
        return MP_SUCCESS;
    HxWipe(mp->dp + mp->used, (mp->alloc - mp->used) * sizeof(mp_digit));
    mp_digit* shrunk = realloc(mp->dp, mp->used * sizeof(mp_digit));
    if (shrunk == NULL)
        return MP_OUT_OF_MEMORY;
    mp->dp = shrunk;
    mp->alloc = mp->used;
    return MP_SUCCESS;
}
