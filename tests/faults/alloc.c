// A library to load ahead of the program's own: makes the allocation numbered FAULT_AT fail, with
// FAULT_ON set all from there on as well. At a normal end it writes their number to FAULT_COUNT.
#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

static long done, at;
static int on;

static int fails(void)
{
    const long n = __atomic_add_fetch(&done, 1, __ATOMIC_RELAXED);
    if (at == 0 || (on ? n < at : n != at)) return 0;
    errno = ENOMEM;
    return 1;
}

void *malloc(size_t size) { return fails() ? NULL : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return fails() ? NULL : __libc_calloc(count, size); }
void *realloc(void *block, size_t size) { return fails() ? NULL : __libc_realloc(block, size); }

__attribute__((constructor)) static void start(void)
{
    const char *number = getenv("FAULT_AT");
    at = number == NULL ? 0 : atol(number);
    on = getenv("FAULT_ON") != NULL;
}

__attribute__((destructor)) static void end(void)
{
    const char *path = getenv("FAULT_COUNT");
    const int file = path == NULL ? -1 : creat(path, 0644);
    if (file >= 0) dprintf(file, "%ld\n", done);
}
