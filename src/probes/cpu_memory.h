/* Number of processors and size of the memory. All functions can be called from any thread. */
#ifndef HX_CPU_MEMORY_H
#define HX_CPU_MEMORY_H

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Stores the number of configured logical processors in *count and returns 0. Configured means
 * online or not. Stores -1 as an unsigned value and still returns 0 if the system does not know the
 * number. Returns -1 if `count` is null. If `verbose` is not 0, prints the number on stderr. */
HX_EXPORT int hx_cpu_logical_count(unsigned int* count, int verbose);

/* Stores the number of processor cores in *count and returns 0.
 *
 * The source is /proc/cpuinfo: each package counts once, with the "cpu cores" value of its first
 * stanza. A stanza without a package counts by itself. The result is at most the number of
 * configured logical processors, which is also the result if the file lists no processor. Reads at
 * most 1024 stanzas.
 *
 * Returns -1 if `count` is null. If the file cannot be opened, prints an error on stderr, stores 0,
 * and returns -1. If `verbose` is not 0, prints the numbers on stderr.
 * Does not free its records of 16 bytes per stanza. */
HX_EXPORT int hx_cpu_count(unsigned int* count, int verbose);

/* Returns the number of configured processors. If the system does not know it, returns 1 if
 * /proc/cpuinfo lists a processor or cannot be read, and 0 if it lists none. Prints an error on
 * stdout for an unreadable file, or on stderr for a failing fopen. */
HX_EXPORT int procNCPU(void);

/* Returns the physical memory in megabytes (2^20 bytes), rounded down. The source is sysconf, or
 * else the MemTotal line of /proc/meminfo. Returns -1 if neither has a value; prints an error like
 * procNCPU if the file cannot be read. */
HX_EXPORT int procRAM(void);

#ifdef __cplusplus
}
#endif

#endif
