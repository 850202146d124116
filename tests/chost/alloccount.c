/* Preloaded into a host: counts what it allocates, all threads together, and at its end writes two
 * numbers into the file KORRIN_COUNT_FILE: all blocks, and those of KORRIN_COUNT_LARGE bytes and
 * more. */
#define _GNU_SOURCE
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>

/* The C library's own, under the names that it exports them with. */
extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void *__libc_realloc(void *block, size_t size);

static atomic_long blocks;
static atomic_long largeBlocks;
static size_t largeBytes = (size_t)-1;

__attribute__((constructor)) static void readEnvironment(void)
{
    const char *bytes = getenv("KORRIN_COUNT_LARGE");
    if (bytes)
        largeBytes = (size_t)strtoul(bytes, NULL, 10);
}

__attribute__((destructor)) static void writeCounts(void)
{
    const char *path = getenv("KORRIN_COUNT_FILE");
    const long all = blocks;
    const long large = largeBlocks;
    FILE *file = path ? fopen(path, "w") : NULL;
    if (!file)
        return;
    fprintf(file, "%ld %ld\n", all, large);
    fclose(file);
}

static void count(size_t size)
{
    atomic_fetch_add(&blocks, 1);
    if (size >= largeBytes)
        atomic_fetch_add(&largeBlocks, 1);
}

void *malloc(size_t size)
{
    count(size);
    return __libc_malloc(size);
}

void *calloc(size_t number, size_t size)
{
    count(number * size);
    return __libc_calloc(number, size);
}

void *realloc(void *block, size_t size)
{
    count(size);
    return __libc_realloc(block, size);
}
