/* Additions, shifts and comparisons of limb arrays. */
#include "kernel.h"
#include "kernel_x86_64.h"

size_t HxNormal(const HxLimb* a, size_t n) {
    while (n > 0 && a[n - 1] == 0)
        --n;
    return n;
}

int HxCmpN(const HxLimb* a, const HxLimb* b, size_t n) {
    while (n > 0) {
        --n;
        if (a[n] != b[n])
            return a[n] > b[n] ? 1 : -1;
    }
    return 0;
}

int HxCmp(const HxLimb* a, size_t an, const HxLimb* b, size_t bn) {
    an = HxNormal(a, an);
    bn = HxNormal(b, bn);
    if (an != bn)
        return an > bn ? 1 : -1;
    return HxCmpN(a, b, an);
}

uint64_t HxBits(const HxLimb* a, size_t n) {
    return n == 0 ? 0 : (uint64_t)(n - 1) * HX_LIMB_BITS + HxBitLength(a[n - 1]);
}

size_t HxLimbsOfBits(uint64_t bits) {
    return (size_t)((bits + HX_LIMB_BITS - 1) / HX_LIMB_BITS);
}

HxLimb HxAddN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n) {
#if HX_ASSEMBLY
    return HxAddNX64(r, a, b, n);
#else
    HxLimb carry = 0;
    for (size_t i = 0; i < n; ++i)
        r[i] = HxAddCarry(a[i], b[i], &carry);
    return carry;
#endif
}

HxLimb HxSubN(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n) {
#if HX_ASSEMBLY
    return HxSubNX64(r, a, b, n);
#else
    HxLimb borrow = 0;
    for (size_t i = 0; i < n; ++i)
        r[i] = HxSubBorrow(a[i], b[i], &borrow);
    return borrow;
#endif
}

HxLimb HxAdd(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn) {
    return HxAdd1(r + bn, a + bn, an - bn, HxAddN(r, a, b, bn));
}

HxLimb HxSub(HxLimb* r, const HxLimb* a, size_t an, const HxLimb* b, size_t bn) {
    return HxSub1(r + bn, a + bn, an - bn, HxSubN(r, a, b, bn));
}

HxLimb HxAdd1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b) {
    size_t i = 0;
    for (; i < n && b != 0; ++i) {
        r[i] = a[i] + b;
        b = r[i] < b;
    }
    if (r != a)
        HxCopy(r + i, a + i, n - i);
    return b;
}

HxLimb HxSub1(HxLimb* r, const HxLimb* a, size_t n, HxLimb b) {
    size_t i = 0;
    for (; i < n && b != 0; ++i) {
        const HxLimb limb = a[i];
        r[i] = limb - b;
        b = limb < b;
    }
    if (r != a)
        HxCopy(r + i, a + i, n - i);
    return b;
}

HxLimb HxShiftLeft(HxLimb* r, const HxLimb* a, size_t n, unsigned bits) {
    if (bits == 0 || n == 0) {
        if (r != a)
            HxCopy(r, a, n);
        return 0;
    }
    const HxLimb out = a[n - 1] >> (HX_LIMB_BITS - bits);
    for (size_t i = n - 1; i > 0; --i)
        r[i] = (a[i] << bits) | (a[i - 1] >> (HX_LIMB_BITS - bits));
    r[0] = a[0] << bits;
    return out;
}

HxLimb HxShiftRight(HxLimb* r, const HxLimb* a, size_t n, unsigned bits) {
    if (bits == 0 || n == 0) {
        if (r != a)
            HxCopy(r, a, n);
        return 0;
    }
    const HxLimb out = a[0] << (HX_LIMB_BITS - bits);
    for (size_t i = 0; i + 1 < n; ++i)
        r[i] = (a[i] >> bits) | (a[i + 1] << (HX_LIMB_BITS - bits));
    r[n - 1] = a[n - 1] >> bits;
    return out;
}

void HxZero(HxLimb* r, size_t n) {
    if (n > 0)
        memset(r, 0, n * sizeof(HxLimb));
}

void HxCopy(HxLimb* r, const HxLimb* a, size_t n) {
    if (n > 0)
        memmove(r, a, n * sizeof(HxLimb));
}
