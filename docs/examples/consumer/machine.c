/* Prints the size of this machine, and a number that is too large for all C types. */
#include <stdio.h>

#include "bigint/mp_int.h"
#include "probes/cpu_memory.h"

/* Prints 2^bits - 1; returns a code of mp_int.h. */
static int print_mersenne_number(uint32_t bits) {
    char text[64];
    mp_int number;
    int code = mp_init(&number);
    if (code != MP_SUCCESS)
        return code;
    code = mp_2expt(bits, &number);
    if (code == MP_SUCCESS)
        code = mp_sub_d(&number, 1, &number);
    if (code == MP_SUCCESS && mp_radix_size(&number, 10) > (int)sizeof text)
        code = MP_OUT_OF_RANGE;
    if (code == MP_SUCCESS)
        code = mp_toradix(&number, text, 10);
    if (code == MP_SUCCESS)
        printf("2^%u - 1 = %s\n", (unsigned)bits, text);
    mp_clear(&number);
    return code;
}

int main(void) {
    unsigned int processors = 0;
    if (hx_cpu_logical_count(&processors, 0) != 0)
        return 1;
    printf("processors %u\n", processors);
    printf("memory %d MB\n", procRAM());

    const int code = print_mersenne_number(89);
    if (code != MP_SUCCESS)
        fprintf(stderr, "integer: %s\n", mp_strerror(code));
    return code == MP_SUCCESS ? 0 : 1;
}
