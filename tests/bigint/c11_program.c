/* A C11 program that includes the header: both sides of a Diffie-Hellman key exchange. */
#include <stdio.h>
#include <string.h>

#include "bigint/mp_int.h"

#define CHECK(call)                                       \
    do {                                                  \
        const int code = (call);                          \
        if (code != MP_SUCCESS) {                         \
            printf("%s: %s\n", #call, mp_strerror(code)); \
            return 1;                                     \
        }                                                 \
    } while (0)

enum { Prime, Generator, Ours, Theirs, OurHalf, TheirHalf, OurKey, TheirKey, Count };

int main(void) {
    mp_int n[Count];
    char text[64];
    CHECK(mp_init_array(n, Count));
    /* 2^127 - 1 */
    CHECK(mp_2expt(127, &n[Prime]));
    CHECK(mp_sub_d(&n[Prime], 1, &n[Prime]));
    CHECK(mp_set(&n[Generator], 43));
    CHECK(mp_read_radix(&n[Ours], "123456789012345678901234567890", 10));
    CHECK(mp_set_int(&n[Theirs], 987654321098765432L));
    CHECK(mp_exptmod(&n[Generator], &n[Ours], &n[Prime], &n[OurHalf]));
    CHECK(mp_exptmod(&n[Generator], &n[Theirs], &n[Prime], &n[TheirHalf]));
    CHECK(mp_exptmod(&n[TheirHalf], &n[Ours], &n[Prime], &n[OurKey]));
    CHECK(mp_exptmod(&n[OurHalf], &n[Theirs], &n[Prime], &n[TheirKey]));
    CHECK(mp_toradix(&n[OurKey], text, 10));
    if (mp_cmp(&n[OurKey], &n[TheirKey]) != 0 ||
        strcmp(text, "78362034894178332505129351397703946777") != 0) {
        printf("wrong key %s\n", text);
        return 1;
    }
    CHECK(mp_clear_array(n, Count));
    return 0;
}
