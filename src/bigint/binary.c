/* Binary forms and their sizes. */
#include <limits.h>

#include "record.h"

/* Bytes of the magnitude, at least 1. */
static uint64_t BytesOf(const mp_int* a) {
    const uint64_t bytes = (hx_record_bits(a) + 7) / 8;
    return bytes == 0 ? 1 : bytes;
}

static int AsCount(uint64_t count) {
    return count > INT_MAX ? INT_MAX : (int)count;
}

static int ReadMagnitude(mp_int* mp, const unsigned char* bytes, size_t length, int negative) {
    const size_t n = hx_limbs_of_bits((uint64_t)length * 8);
    hx_scratch s;
    int code = hx_scratch_open(&s, n);
    if (code != MP_SUCCESS)
        return code;
    hx_limb* limbs = hx_scratch_take(&s, n);
    hx_zero(limbs, n);
    for (size_t i = 0; i < length; ++i)
        limbs[i / 8] |= (hx_limb)bytes[length - 1 - i] << (i % 8 * 8);
    code = hx_store(mp, limbs, n, negative);
    hx_scratch_close(&s);
    return code;
}

static void WriteMagnitude(const mp_int* a, unsigned char* bytes) {
    const uint64_t length = BytesOf(a);
    for (uint64_t i = 0; i < length; ++i)
        bytes[length - 1 - i] = (unsigned char)(a->dp[i / 2] >> (i % 2 * 8) & 0xff);
}

int mp_read_signed_bin(mp_int* mp, const unsigned char* bytes, int length) {
    if (!hx_is_valid(mp) || bytes == NULL || length < 1)
        return MP_INVALID_PARAMETER;
    return ReadMagnitude(mp, bytes + 1, (size_t)length - 1, bytes[0] != 0);
}

int mp_read_unsigned_bin(mp_int* mp, const unsigned char* bytes, int length) {
    if (!hx_is_valid(mp) || bytes == NULL || length < 1)
        return MP_INVALID_PARAMETER;
    return ReadMagnitude(mp, bytes, (size_t)length, 0);
}

int mp_to_signed_bin(const mp_int* a, unsigned char* bytes) {
    if (!hx_is_valid(a) || bytes == NULL)
        return MP_INVALID_PARAMETER;
    bytes[0] = a->sign != 0;
    WriteMagnitude(a, bytes + 1);
    return MP_SUCCESS;
}

int mp_to_unsigned_bin(const mp_int* a, unsigned char* bytes) {
    if (!hx_is_valid(a) || bytes == NULL)
        return MP_INVALID_PARAMETER;
    WriteMagnitude(a, bytes);
    return MP_SUCCESS;
}

int mp_signed_bin_size(const mp_int* a) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    return AsCount(BytesOf(a) + 1);
}

int mp_unsigned_bin_size(const mp_int* a) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    return AsCount(BytesOf(a));
}

int mp_count_bits(const mp_int* a) {
    if (!hx_is_valid(a))
        return MP_INVALID_PARAMETER;
    return AsCount(hx_record_bits(a));
}
