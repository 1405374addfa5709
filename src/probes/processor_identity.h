/* Who made the processor, which model it is, its cache and its clock, and the family of the Linux
 * distribution: small codes for programs that choose by the kind of machine. All five read
 * /proc/cpuinfo or /proc/version anew at each call and keep nothing. A file that cannot be read
 * gives 0 and a line on stdout; one that fails to open all the same gives 0 and a line on stderr.
 *
 * procCPU, procCacheSize and procCPUMhz use strtok: those three must not run on two threads at the
 * same time, nor beside other users of strtok. */
#ifndef HX_PROCESSOR_IDENTITY_H
#define HX_PROCESSOR_IDENTITY_H

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The maker: 1 Intel, 2 AMD, 3 Cyrix, 4 Transmeta, 5 any other, 0 when the file names none. */
HX_EXPORT int procCPU(void);

/* The model of a processor of `vendor`, a code of procCPU; 0 when it is in neither list, and for
 * every vendor but 1 and 2.
 *   Intel: 1 486, 2 Pentium and Pentium Pro, 3 Pentium II, 4 Pentium III, 5 Celeron, 6 Pentium 4
 *   AMD:   1 K5, 2 K6, 3 K6-2, 4 K6-3, 5 Athlon, 6 Duron, 7 Athlon MP, 8 Athlon 4
 * The names are looked for as they stand: "Intel(R) Pentium(R) III CPU" holds no "Pentium III" and
 * counts as a Pentium. */
HX_EXPORT int procCPUModel(int vendor);

/* The distribution's family, by the words in the kernel's version: 1 Red Hat, 2 SuSE, 3 Mandrake,
 * 0 any other. */
HX_EXPORT int procVersion(void);

/* The cache size in kilobytes, in 32-bit arithmetic; 0 when the file tells none. */
HX_EXPORT int procCacheSize(void);

/* The nominal clock in megahertz: the measured one, moved to the nearest usual figure (multiples of
 * 33 1/3 and of 50 MHz, below 100 MHz of 10 MHz). The last word of the line stands, and a word
 * that is no number counts as 0. A line whose result is below 0 is skipped: the figure -20 is, but
 * -5 gives 0. So is a line whose figure is not finite or 2e9 and more. -1 when no line is left; 0
 * when the file cannot be read. */
HX_EXPORT int procCPUMhz(void);

#ifdef __cplusplus
}
#endif

#endif
