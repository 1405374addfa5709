/* Line input for the prompts. */
#ifndef HX_HXFGETS_H
#define HX_HXFGETS_H

#include <stdio.h>

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads a line of at most size - 1 bytes, including its newline, from `stream` into `buffer`, as
 * fgets does. The next call reads the rest of a longer line. Returns `buffer`, or NULL with an
 * empty string in the buffer at end of file or on an error. If `size` is below 1, reads nothing,
 * does not change the buffer, and returns NULL. */
HX_EXPORT char* HXfgets(char* buffer, int size, FILE* stream);

#ifdef __cplusplus
}
#endif

#endif
