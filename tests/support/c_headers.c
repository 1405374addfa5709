/* The C headers of the library, used from C11. */
#include "c_headers.h"

#include <string.h>

#include "probes/cpu_memory.h"
#include "support/HXfgets.h"
#include "support/storeFile.h"

long CStandardOfTheFile(void) {
    return __STDC_VERSION__;
}

size_t FirstLineLengthFromC(FILE* stream) {
    char line[64];
    HXfgets(line, (int)sizeof line, stream);
    return strlen(line);
}

int CountLinesFromC(FILE* stream) {
    char** lines = storeFile(stream, 40, 40, 80);
    if (lines == NULL)
        return -1;
    int count = 0;
    while (lines[count] != NULL)
        ++count;
    freeStoredFile(lines);
    return count;
}

struct CMeasures MeasureFromC(void) {
    struct CMeasures measures = {0};
    measures.logicalResult = hx_cpu_logical_count(&measures.logical, 0);
    measures.coresResult = hx_cpu_count(&measures.cores, 0);
    measures.processors = procNCPU();
    measures.megabytes = procRAM();
    return measures;
}
