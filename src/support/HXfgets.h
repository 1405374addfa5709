/* Line input for console questions. */
#ifndef HX_HXFGETS_H
#define HX_HXFGETS_H

#include <stdio.h>

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads one line of at most size - 1 bytes from `stream` into `buffer`, as fgets does, its
 * newline included. The rest of a longer line stays for the next read. Where nothing could be
 * read (end of file, an error) the buffer holds an empty string and the result is NULL; otherwise
 * the result is `buffer`. A size below 1 reads nothing and leaves the buffer alone. */
HX_EXPORT char* HXfgets(char* buffer, int size, FILE* stream);

#ifdef __cplusplus
}
#endif

#endif
