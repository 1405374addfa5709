/* Prints the codes of the processor and the distribution of this machine. */
#include <stdio.h>

#include "probes/processor_identity.h"

int main(void) {
    const int vendor = procCPU();
    printf("vendor %d, model %d\n", vendor, procCPUModel(vendor));
    printf("cache %d KB\n", procCacheSize());
    const int clock = procCPUMhz();
    if (clock > 0)
        printf("clock %d MHz\n", clock);
    else
        printf("clock unknown\n");
    printf("distribution %d\n", procVersion());
    return 0;
}
