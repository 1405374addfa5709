/* Fails calls of the C library for tests. Linked into a test program, or preloaded into another.
 *
 *   HX_TEST_FAIL="mkstemp=13,chmod=30"   these calls fail with this errno (as a result, where that
 *                                        is how the call tells)
 *   HX_TEST_SYSCONF="84=0,30=-1"         sysconf answers these numbers for these names
 *   HX_TEST_NO_MEMORY="16"               malloc of exactly this size fails
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <grp.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

/* Finds `name=number` in the comma-separated list of the environment variable `list`. */
static int listed(const char* list, const char* name, long* number) {
    const char* entry = getenv(list);
    const size_t length = strlen(name);
    while (entry != NULL && *entry != '\0') {
        if (strncmp(entry, name, length) == 0 && entry[length] == '=') {
            *number = strtol(entry + length + 1, NULL, 10);
            return 1;
        }
        entry = strchr(entry, ',');
        entry = entry == NULL ? NULL : entry + 1;
    }
    return 0;
}

static int fails(const char* call) {
    long error = 0;
    if (!listed("HX_TEST_FAIL", call, &error))
        return 0;
    errno = (int)error;
    return 1;
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

long sysconf(int name) {
    char key[16];
    long answer = 0;
    snprintf(key, sizeof key, "%d", name);
    return listed("HX_TEST_SYSCONF", key, &answer) ? answer : REAL(sysconf)(name);
}

char* getcwd(char* buffer, size_t size) {
    return fails("getcwd") ? NULL : REAL(getcwd)(buffer, size);
}

int mkstemp(char* name) {
    return fails("mkstemp") ? -1 : REAL(mkstemp)(name);
}

FILE* fdopen(int fd, const char* mode) {
    return fails("fdopen") ? NULL : REAL(fdopen)(fd, mode);
}

FILE* fopen(const char* path, const char* mode) {
    return fails("fopen") ? NULL : REAL(fopen)(path, mode);
}

int chmod(const char* path, mode_t mode) {
    return fails("chmod") ? -1 : REAL(chmod)(path, mode);
}

int mkdir(const char* path, mode_t mode) {
    return fails("mkdir") ? -1 : REAL(mkdir)(path, mode);
}

int unlink(const char* path) {
    return fails("unlink") ? -1 : REAL(unlink)(path);
}

int symlink(const char* target, const char* path) {
    return fails("symlink") ? -1 : REAL(symlink)(target, path);
}

ssize_t readlink(const char* path, char* buffer, size_t size) {
    return fails("readlink") ? -1 : REAL(readlink)(path, buffer, size);
}

int lstat(const char* path, struct stat* entry) {
    return fails("lstat") ? -1 : REAL(lstat)(path, entry);
}

int getpwnam_r(const char* name, struct passwd* entry, char* buffer, size_t size,
               struct passwd** result) {
    if (!fails("getpwnam_r"))
        return REAL(getpwnam_r)(name, entry, buffer, size, result);
    *result = NULL;
    return errno;
}

int getgrnam_r(const char* name, struct group* entry, char* buffer, size_t size,
               struct group** result) {
    if (!fails("getgrnam_r"))
        return REAL(getgrnam_r)(name, entry, buffer, size, result);
    *result = NULL;
    return errno;
}

#ifndef HX_TEST_KEEP_MALLOC
extern void* __libc_malloc(size_t size);

void* malloc(size_t size) {
    static __thread int busy;
    if (!busy) {
        busy = 1;
        const char* failing = getenv("HX_TEST_NO_MEMORY");
        const int fail = failing != NULL && (size_t)strtoul(failing, NULL, 10) == size;
        busy = 0;
        if (fail) {
            errno = ENOMEM;
            return NULL;
        }
    }
    return __libc_malloc(size);
}
#endif
