/* Additions, shifts and comparisons of limb arrays. */
#include "kernel.h"
#include "kernel_x86_64.h"

size_t hx_normal(const hx_limb* a, size_t n) {
    while (n > 0 && a[n - 1] == 0)
        --n;
    return n;
}

int hx_cmp_n(const hx_limb* a, const hx_limb* b, size_t n) {
    while (n > 0) {
        --n;
        if (a[n] != b[n])
            return a[n] > b[n] ? 1 : -1;
    }
    return 0;
}

int hx_cmp(const hx_limb* a, size_t an, const hx_limb* b, size_t bn) {
    an = hx_normal(a, an);
    bn = hx_normal(b, bn);
    if (an != bn)
        return an > bn ? 1 : -1;
    return hx_cmp_n(a, b, an);
}

uint64_t hx_bits(const hx_limb* a, size_t n) {
    return n == 0 ? 0 : (uint64_t)(n - 1) * HX_LIMB_BITS + hx_bit_length(a[n - 1]);
}

size_t hx_limbs_of_bits(uint64_t bits) {
    return (size_t)((bits + HX_LIMB_BITS - 1) / HX_LIMB_BITS);
}

hx_limb hx_add_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n) {
#if HX_ASSEMBLY
    return hx_add_n_x64(r, a, b, n);
#else
    hx_limb carry = 0;
    for (size_t i = 0; i < n; ++i)
        r[i] = hx_add_carry(a[i], b[i], &carry);
    return carry;
#endif
}

hx_limb hx_sub_n(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n) {
#if HX_ASSEMBLY
    return hx_sub_n_x64(r, a, b, n);
#else
    hx_limb borrow = 0;
    for (size_t i = 0; i < n; ++i)
        r[i] = hx_sub_borrow(a[i], b[i], &borrow);
    return borrow;
#endif
}

hx_limb hx_add(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn) {
    return hx_add_1(r + bn, a + bn, an - bn, hx_add_n(r, a, b, bn));
}

hx_limb hx_sub(hx_limb* r, const hx_limb* a, size_t an, const hx_limb* b, size_t bn) {
    return hx_sub_1(r + bn, a + bn, an - bn, hx_sub_n(r, a, b, bn));
}

hx_limb hx_add_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b) {
    size_t i = 0;
    for (; i < n && b != 0; ++i) {
        r[i] = a[i] + b;
        b = r[i] < b;
    }
    if (r != a)
        hx_copy(r + i, a + i, n - i);
    return b;
}

hx_limb hx_sub_1(hx_limb* r, const hx_limb* a, size_t n, hx_limb b) {
    size_t i = 0;
    for (; i < n && b != 0; ++i) {
        const hx_limb limb = a[i];
        r[i] = limb - b;
        b = limb < b;
    }
    if (r != a)
        hx_copy(r + i, a + i, n - i);
    return b;
}

hx_limb hx_shift_left(hx_limb* r, const hx_limb* a, size_t n, unsigned bits) {
    if (bits == 0 || n == 0) {
        if (r != a)
            hx_copy(r, a, n);
        return 0;
    }
    const hx_limb out = a[n - 1] >> (HX_LIMB_BITS - bits);
    for (size_t i = n - 1; i > 0; --i)
        r[i] = (a[i] << bits) | (a[i - 1] >> (HX_LIMB_BITS - bits));
    r[0] = a[0] << bits;
    return out;
}

hx_limb hx_shift_right(hx_limb* r, const hx_limb* a, size_t n, unsigned bits) {
    if (bits == 0 || n == 0) {
        if (r != a)
            hx_copy(r, a, n);
        return 0;
    }
    const hx_limb out = a[0] << (HX_LIMB_BITS - bits);
    for (size_t i = 0; i + 1 < n; ++i)
        r[i] = (a[i] >> bits) | (a[i + 1] << (HX_LIMB_BITS - bits));
    r[n - 1] = a[n - 1] >> bits;
    return out;
}

void hx_zero(hx_limb* r, size_t n) {
    if (n > 0)
        memset(r, 0, n * sizeof(hx_limb));
}

void hx_copy(hx_limb* r, const hx_limb* a, size_t n) {
    if (n > 0)
        memmove(r, a, n * sizeof(hx_limb));
}
