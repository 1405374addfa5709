/* A whole stream as a list of lines. */
#ifndef HX_STOREFILE_H
#define HX_STOREFILE_H

#include <stdio.h>

#include "support/hx_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads `stream` to its end and returns its lines, whole and of any length, each with its newline
 * where it has one, the last line included. The list ends with a null pointer; an empty stream
 * gives a list of none. The lines may be written to. Returns NULL when the stream cannot be read
 * or memory runs out. The caller frees the list with freeStoredFile and keeps the stream.
 *
 * `initialLines` is a hint of how many lines to expect. `lineGrowth` and `lineLength` are part of
 * the interface and have no effect: the list and its lines grow as they need. */
HX_EXPORT char** storeFile(FILE* stream, int initialLines, int lineGrowth, int lineLength);

/* Frees a list that storeFile gave, its lines included. NULL is allowed. */
HX_EXPORT void freeStoredFile(char** lines);

#ifdef __cplusplus
}
#endif

#endif
