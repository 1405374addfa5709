/* What kernel_x86_64.S provides, and whether it can be used. */
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

hx_limb hx_add_n_x64(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n);
hx_limb hx_sub_n_x64(hx_limb* r, const hx_limb* a, const hx_limb* b, size_t n);

void hx_addmul_1_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
void hx_addmul_2_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
void hx_addmul_3_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
void hx_addmul_4_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
void hx_addmul_5_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
void hx_addmul_6_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
void hx_addmul_7_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
void hx_addmul_8_adx(hx_limb* r, const hx_limb* b, size_t n, const hx_limb* a);
hx_limb hx_square_groups_adx(hx_limb* r, const hx_limb* a, size_t groups, hx_limb carry);
hx_limb hx_addmul_row_adx(hx_limb* r, const hx_limb* a, size_t n, hx_limb b);
hx_limb hx_submul_row_adx(hx_limb* r, const hx_limb* a, size_t n, hx_limb b);

/* Whether this processor has BMI2 and ADX. */
int hx_has_adx(void);

#endif

#endif
