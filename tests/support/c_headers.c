/* Uses the C headers of the library from C11. */
#include <string.h>
#include <unistd.h>

#include "probes/cpu_memory.h"
#include "support/HXfgets.h"
#include "support/storeFile.h"

#define CHECK(condition)       \
    do {                       \
        if (!(condition))      \
            return #condition; \
    } while (0)

const char* FailedCheckInC(FILE* stream);

/* Reads a stream with the lines "first", "second", and "third". Returns the failed check or NULL.
 */
const char* FailedCheckInC(FILE* stream) {
    CHECK(__STDC_VERSION__ == 201112L);

    char line[64];
    CHECK(HXfgets(line, (int)sizeof line, stream) == line && strcmp(line, "first\n") == 0);
    char** lines = storeFile(stream, 40, 40, 80);
    CHECK(lines != NULL && strcmp(lines[0], "second\n") == 0 && strcmp(lines[1], "third") == 0);
    CHECK(lines[2] == NULL);
    freeStoredFile(lines);

    const long configured = sysconf(_SC_NPROCESSORS_CONF);
    unsigned int logical = 0;
    unsigned int cores = 0;
    CHECK(hx_cpu_logical_count(&logical, 0) == 0 && (long)logical == configured);
    CHECK(hx_cpu_count(&cores, 0) == 0 && cores >= 1 && cores <= logical);
    CHECK(procNCPU() == configured);
    CHECK(procRAM() == (long long)sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE) / 1048576);
    return NULL;
}
