/* The functions of kernel_x86_64.S; HX_ASSEMBLY is 1 if they are built. */
#ifndef HX_BIGINT_KERNEL_X86_64_H
#define HX_BIGINT_KERNEL_X86_64_H

#include "limb.h"

#if !defined(HX_BIGINT_PORTABLE) && !defined(HX_BIGINT_NO_ASSEMBLY) && defined(__x86_64__) && \
    defined(__ELF__) && !defined(__ILP32__)
#define HX_ASSEMBLY 1
#else
#define HX_ASSEMBLY 0
#endif

#if HX_ASSEMBLY

HxLimb HxAddNX64(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n);
HxLimb HxSubNX64(HxLimb* r, const HxLimb* a, const HxLimb* b, size_t n);

void HxAddmul1Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
void HxAddmul2Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
void HxAddmul3Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
void HxAddmul4Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
void HxAddmul5Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
void HxAddmul6Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
void HxAddmul7Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
void HxAddmul8Adx(HxLimb* r, const HxLimb* b, size_t n, const HxLimb* a);
HxLimb HxSquareGroupsAdx(HxLimb* r, const HxLimb* a, size_t groups, HxLimb carry);
HxLimb HxAddmulRowAdx(HxLimb* r, const HxLimb* a, size_t n, HxLimb b);
HxLimb HxSubmulRowAdx(HxLimb* r, const HxLimb* a, size_t n, HxLimb b);

/* Returns whether this processor has BMI2 and ADX. */
int HxHasAdx(void);

#endif

#endif
