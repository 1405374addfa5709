/* Detection of the processor features that the assembly needs. */
#include "kernel_x86_64.h"

#if HX_ASSEMBLY

#include <cpuid.h>
#include <stdatomic.h>

enum { Unknown, Absent, Present };

#ifdef HX_BIGINT_NO_ADX
/* For tests: behaves like an older processor. */
static int Ask(void) {
    return Absent;
}
#else
static int Ask(void) {
    const unsigned needed = (1U << 8) | (1U << 19); /* BMI2 and ADX in EBX of leaf 7 */
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0)
        return Absent;
    return (ebx & needed) == needed ? Present : Absent;
}
#endif

int HxHasAdx(void) {
    static atomic_int answer = Unknown;
    int known = atomic_load_explicit(&answer, memory_order_relaxed);
    if (known == Unknown) {
        known = Ask();
        atomic_store_explicit(&answer, known, memory_order_relaxed);
    }
    return known == Present;
}

#else

/* C does not allow an empty translation unit. */
typedef int HxNoAssembly;

#endif
