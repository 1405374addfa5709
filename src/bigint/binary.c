/* Binary forms and their sizes. */
#include <limits.h>

#include "record.h"

/* Bytes of the magnitude, at least 1. */
static uint64_t BytesOf(const mp_int* a) {
    const uint64_t bytes = (HxRecordBits(a) + 7) / 8;
    return bytes == 0 ? 1 : bytes;
}

static int AsCount(uint64_t count) {
    return count > INT_MAX ? INT_MAX : (int)count;
}

static int ReadMagnitude(mp_int* mp, const unsigned char* bytes, size_t length, int negative) {
    const size_t n = HxLimbsOfBits((uint64_t)length * 8);
    HxScratch s;
    int code = HxScratchOpen(&s, n);
    if (code != MP_SUCCESS)
        return code;
    HxLimb* limbs = HxScratchTake(&s, n);
    HxZero(limbs, n);
    for (size_t i = 0; i < length; ++i)
        limbs[i / 8] |= (HxLimb)bytes[length - 1 - i] << (i % 8 * 8);
    code = HxStore(mp, limbs, n, negative);
    HxScratchClose(&s);
    return code;
}

static void WriteMagnitude(const mp_int* a, unsigned char* bytes) {
    const uint64_t length = BytesOf(a);
    for (uint64_t i = 0; i < length; ++i)
        bytes[length - 1 - i] = (unsigned char)(a->dp[i / 2] >> (i % 2 * 8) & 0xff);
}

int mp_read_signed_bin(mp_int* mp, const unsigned char* bytes, int length) {
    if (!HxIsValid(mp) || bytes == NULL || length < 1)
        return MP_INVALID_PARAMETER;
    return ReadMagnitude(mp, bytes + 1, (size_t)length - 1, bytes[0] != 0);
}

int mp_read_unsigned_bin(mp_int* mp, const unsigned char* bytes, int length) {
    if (!HxIsValid(mp) || bytes == NULL || length < 1)
        return MP_INVALID_PARAMETER;
    return ReadMagnitude(mp, bytes, (size_t)length, 0);
}

int mp_to_signed_bin(const mp_int* a, unsigned char* bytes) {
    if (!HxIsValid(a) || bytes == NULL)
        return MP_INVALID_PARAMETER;
    bytes[0] = a->sign != 0;
    WriteMagnitude(a, bytes + 1);
    return MP_SUCCESS;
}

int mp_to_unsigned_bin(const mp_int* a, unsigned char* bytes) {
    if (!HxIsValid(a) || bytes == NULL)
        return MP_INVALID_PARAMETER;
    WriteMagnitude(a, bytes);
    return MP_SUCCESS;
}

int mp_signed_bin_size(const mp_int* a) {
    if (!HxIsValid(a))
        return MP_INVALID_PARAMETER;
    return AsCount(BytesOf(a) + 1);
}

int mp_unsigned_bin_size(const mp_int* a) {
    if (!HxIsValid(a))
        return MP_INVALID_PARAMETER;
    return AsCount(BytesOf(a));
}

int mp_count_bits(const mp_int* a) {
    if (!HxIsValid(a))
        return MP_INVALID_PARAMETER;
    return AsCount(HxRecordBits(a));
}
