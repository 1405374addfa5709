/* What c_headers.c offers to the tests: the exported C functions, called from C. */
#ifndef HX_TEST_C_HEADERS_H
#define HX_TEST_C_HEADERS_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The value of __STDC_VERSION__ that the file was compiled with. */
long CStandardOfTheFile(void);

/* The length of the first line of `stream`, its newline included. */
size_t FirstLineLengthFromC(FILE* stream);

/* The number of lines of `stream`, or -1 when it cannot be read. */
int CountLinesFromC(FILE* stream);

struct CMeasures {
    int logicalResult;
    unsigned int logical;
    int coresResult;
    unsigned int cores;
    int processors;
    int megabytes;
};

struct CMeasures MeasureFromC(void);

#ifdef __cplusplus
}
#endif

#endif
