/* Makes calls of the C library fail. Linked into a test program, or preloaded into another one.
 *
 *   HX_TEST_FAIL="mkstemp=13,chmod=30"   these calls fail with this errno, or return it if that is
 *                                        how they report errors
 *   HX_TEST_FAIL="fopen:3=24"            only the third call fails
 *   HX_TEST_SYSCONF="84=0,30=-1"         sysconf returns these values for these names
 *   HX_TEST_NO_MEMORY="16"               malloc of exactly this size fails
 *   HX_TEST_NO_MEMORY=":3"               only the third call of malloc, calloc, or realloc fails,
 *                                        counted from the start of the program
 *   HX_TEST_REACHED="/tmp/file"          created when a counted call fails
 *
 * Child processes do not preload it.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

__attribute__((constructor)) static void stay_in_this_program(void) {
    unsetenv("LD_PRELOAD");
}

/* Uses system calls, because this file replaces the functions. */
static void report_reached(void) {
    const char* path = getenv("HX_TEST_REACHED");
    if (path != NULL)
        syscall(SYS_close, syscall(SYS_openat, AT_FDCWD, path, O_CREAT | O_WRONLY, 0600));
}

/* Returns the text after `name`, from its '=' or ':', in the comma-separated environment variable
 * `list`; null without an entry. */
static const char* listed(const char* list, const char* name) {
    const char* entry = getenv(list);
    const size_t length = strlen(name);
    while (entry != NULL && *entry != '\0') {
        if (strncmp(entry, name, length) == 0 && (entry[length] == '=' || entry[length] == ':'))
            return entry + length;
        entry = strchr(entry, ',');
        entry = entry == NULL ? NULL : entry + 1;
    }
    return NULL;
}

/* `count` belongs to the caller, and counts the calls while a counted failure is requested. */
static int fails(const char* call, int* count) {
    const char* failure = listed("HX_TEST_FAIL", call);
    if (failure == NULL)
        return 0;
    if (*failure == ':') {
        char* end = NULL;
        if (strtol(failure + 1, &end, 10) != ++*count)
            return 0;
        report_reached();
        failure = end;
    }
    errno = (int)strtol(failure + 1, NULL, 10);
    return 1;
}

#define FAILS(call)          \
    __extension__({          \
        static int count;    \
        fails(call, &count); \
    })

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

long sysconf(int name) {
    char key[16];
    snprintf(key, sizeof key, "%d", name);
    const char* answer = listed("HX_TEST_SYSCONF", key);
    return answer == NULL ? REAL(sysconf)(name) : strtol(answer + 1, NULL, 10);
}

char* getcwd(char* buffer, size_t size) {
    return FAILS("getcwd") ? NULL : REAL(getcwd)(buffer, size);
}

int mkstemp(char* name) {
    return FAILS("mkstemp") ? -1 : REAL(mkstemp)(name);
}

FILE* fdopen(int fd, const char* mode) {
    return FAILS("fdopen") ? NULL : REAL(fdopen)(fd, mode);
}

FILE* fopen(const char* path, const char* mode) {
    return FAILS("fopen") ? NULL : REAL(fopen)(path, mode);
}

int chmod(const char* path, mode_t mode) {
    return FAILS("chmod") ? -1 : REAL(chmod)(path, mode);
}

int mkdir(const char* path, mode_t mode) {
    return FAILS("mkdir") ? -1 : REAL(mkdir)(path, mode);
}

int statfs(const char* path, struct statfs* found) {
    return FAILS("statfs") ? -1 : REAL(statfs)(path, found);
}

int flock(int descriptor, int operation) {
    return FAILS("flock") ? -1 : REAL(flock)(descriptor, operation);
}

int unshare(int flags) {
    return FAILS("unshare") ? -1 : REAL(unshare)(flags);
}

int renameat2(int from_directory, const char* from, int to_directory, const char* to,
              unsigned int flags) {
    return FAILS("renameat2") ? -1 : REAL(renameat2)(from_directory, from, to_directory, to, flags);
}

int linkat(int from_directory, const char* from, int to_directory, const char* to, int flags) {
    return FAILS("linkat") ? -1 : REAL(linkat)(from_directory, from, to_directory, to, flags);
}

int unlink(const char* path) {
    return FAILS("unlink") ? -1 : REAL(unlink)(path);
}

int symlink(const char* target, const char* path) {
    return FAILS("symlink") ? -1 : REAL(symlink)(target, path);
}

ssize_t readlink(const char* path, char* buffer, size_t size) {
    return FAILS("readlink") ? -1 : REAL(readlink)(path, buffer, size);
}

int lstat(const char* path, struct stat* entry) {
    return FAILS("lstat") ? -1 : REAL(lstat)(path, entry);
}

int getpwnam_r(const char* name, struct passwd* entry, char* buffer, size_t size,
               struct passwd** result) {
    if (!FAILS("getpwnam_r"))
        return REAL(getpwnam_r)(name, entry, buffer, size, result);
    *result = NULL;
    return errno;
}

int getgrnam_r(const char* name, struct group* entry, char* buffer, size_t size,
               struct group** result) {
    if (!FAILS("getgrnam_r"))
        return REAL(getgrnam_r)(name, entry, buffer, size, result);
    *result = NULL;
    return errno;
}

int access(const char* path, int mode) {
    return FAILS("access") ? -1 : REAL(access)(path, mode);
}

int setenv(const char* name, const char* value, int overwrite) {
    return FAILS("setenv") ? -1 : REAL(setenv)(name, value, overwrite);
}

/* Closes the file even if it reports a failure, as all systems do. */
int fclose(FILE* file) {
    const int result = REAL(fclose)(file);
    return FAILS("fclose") ? EOF : result;
}

/* Qt's child processes call it on a stack that is too small for dlsym. */
int close(int descriptor) {
    const int result = (int)syscall(SYS_close, descriptor);
    return FAILS("close") ? -1 : result;
}

#ifndef HX_TEST_KEEP_MALLOC
extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* memory, size_t size);

static int program_runs;

/* Counts allocations from here on: without memory, libraries abort or hang while they are loaded.
 */
int __libc_start_main(int (*program)(int, char**, char**), int argc, char** argv,
                      void (*init)(void), void (*fini)(void), void (*loader_fini)(void),
                      void* stack_end) {
    program_runs = 1;
    return REAL(__libc_start_main)(program, argc, argv, init, fini, loader_fini, stack_end);
}

/* Returns whether an allocation fails: a malloc by its size, or any allocation by its number. */
static int lacks_memory(int of_malloc, size_t size) {
    static __thread int busy;
    static long count;
    if (busy || !program_runs)
        return 0;
    busy = 1;
    const char* failing = getenv("HX_TEST_NO_MEMORY");
    int fail = 0;
    if (failing != NULL && *failing == ':')
        fail = strtol(failing + 1, NULL, 10) == ++count;
    else if (failing != NULL)
        fail = of_malloc && (size_t)strtoul(failing, NULL, 10) == size;
    if (fail && *failing == ':')
        report_reached();
    busy = 0;
    if (fail)
        errno = ENOMEM;
    return fail;
}

void* malloc(size_t size) {
    return lacks_memory(1, size) ? NULL : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    return lacks_memory(0, size) ? NULL : __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
    return lacks_memory(0, size) ? NULL : __libc_realloc(memory, size);
}
#endif
