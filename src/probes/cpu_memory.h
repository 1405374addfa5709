/* How much machine there is: processors and memory. All four functions are stateless. */
#ifndef HX_CPU_MEMORY_H
#define HX_CPU_MEMORY_H

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Stores the number of configured (not only online) logical processors in *count and returns 0.
 * Where the system cannot tell, -1 is stored, as an unsigned value, and the result is still 0.
 * A null `count` gives -1. A non-zero `verbose` traces the figure on stderr. */
HX_EXPORT int hx_cpu_logical_count(unsigned int* count, int verbose);

/* Stores the number of processor cores in *count and returns 0. The figure comes from
 * /proc/cpuinfo: each package counts the "cpu cores" of its first stanza once, a stanza without a
 * package counts for itself, and the sum is never above the configured logical processors, which
 * also serve where the file lists none. At most 1024 stanzas are read.
 * Returns -1 for a null `count`, and, with *count set to 0 and a line on stderr, when the file
 * cannot be opened. A non-zero `verbose` traces the figures on stderr.
 * Each stanza's record of 16 bytes stays allocated. */
HX_EXPORT int hx_cpu_count(unsigned int* count, int verbose);

/* The number of configured processors. Where the system cannot tell, the answer is 1 if
 * /proc/cpuinfo lists any processor or cannot be read, and 0 if it lists none. */
HX_EXPORT int procNCPU(void);

/* Physical memory in megabytes (2^20 bytes), rounded down, from sysconf or else from the MemTotal
 * line of /proc/meminfo; -1 when neither tells. */
HX_EXPORT int procRAM(void);

#ifdef __cplusplus
}
#endif

#endif
