/* A whole stream as a list of lines. */
#ifndef HX_STOREFILE_H
#define HX_STOREFILE_H

#include <stdio.h>

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads `stream` to its end and returns its lines with their newlines. Lines have any length; the
 * last one may lack a newline. The list ends with a null pointer and is empty for an empty stream.
 * The caller may modify the lines, frees the list with freeStoredFile, and keeps the stream.
 * Returns NULL on a read error or if memory runs out.
 *
 * `initialLines` is the expected number of lines; any value works. `lineGrowth` and `lineLength`
 * have no effect. */
HX_EXPORT char** storeFile(FILE* stream, int initialLines, int lineGrowth, int lineLength);

/* Frees a list from storeFile and its lines. Accepts NULL. */
HX_EXPORT void freeStoredFile(char** lines);

#ifdef __cplusplus
}
#endif

#endif
