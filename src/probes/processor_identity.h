/* Processor vendor, model, cache size, and clock, and the family of the Linux distribution.
 *
 * Each function reads /proc/cpuinfo or /proc/version when it is called. For a file that is not
 * readable it prints an error on stdout and returns 0. If only fopen fails, the error goes to
 * stderr.
 *
 * procCPU, procCacheSize, and procCPUMhz use strtok: do not call them on two threads at once, or
 * between strtok calls of your own. */
#ifndef HX_PROCESSOR_IDENTITY_H
#define HX_PROCESSOR_IDENTITY_H

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the vendor: 1 Intel, 2 AMD, 3 Cyrix, 4 Transmeta, 5 any other, 0 if the file names none.
 */
HX_EXPORT int procCPU(void);

/* Returns the model of a processor of `vendor`, which is a result of procCPU. Returns 0 for unknown
 * models and for vendors other than 1 and 2.
 *   Intel: 1 486, 2 Pentium and Pentium Pro, 3 Pentium II, 4 Pentium III, 5 Celeron, 6 Pentium 4
 *   AMD:   1 K5, 2 K6, 3 K6-2, 4 K6-3, 5 Athlon, 6 Duron, 7 Athlon MP, 8 Athlon 4
 * Searches for the literal names: "Intel(R) Pentium(R) III CPU" does not contain "Pentium III", so
 * the result is 2. */
HX_EXPORT int procCPUModel(int vendor);

/* Returns the family of the distribution, by words in /proc/version: 1 Red Hat, 2 SuSE, 3 Mandrake,
 * 0 any other. */
HX_EXPORT int procVersion(void);

/* Returns the cache size in kilobytes, or 0 if the file has none. Wraps around at 32 bits. */
HX_EXPORT int procCacheSize(void);

/* Returns the nominal clock in megahertz: the measured clock, moved to the nearest multiple of
 * 33 1/3 or 50 MHz (below 100 MHz: of 10 MHz).
 *
 * The last word of a "cpu MHz" line decides. A word that is not a number is 0. Skips a line if its
 * result is negative (-20 is skipped, but -5 gives 0) or if its value is not finite or is 2e9 or
 * more. Returns -1 if no line has a result, and 0 if the file cannot be read. */
HX_EXPORT int procCPUMhz(void);

#ifdef __cplusplus
}
#endif

#endif
