/* Preloaded into a host: counts what it allocates, all threads together, and at its end writes two
 * numbers into the file KORRIN_COUNT_FILE: all blocks, and those that came to have
 * KORRIN_COUNT_LARGE bytes or more. */
#define _GNU_SOURCE
#include <malloc.h>
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

__attribute__((constructor)) static void prepare(void)
{
    const char *bytes = getenv("KORRIN_COUNT_LARGE");
    if (bytes)
        largeBytes = (size_t)strtoul(bytes, NULL, 10);
    /* Fixed: left alone, it rises with the blocks freed, and large ones come from the heap too. */
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
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

/* A block of size bytes, in the place of one of oldSize bytes. A large one that grows or shrinks
 * counts once: the C library moves its pages and copies nothing. */
static void count(size_t oldSize, size_t size)
{
    atomic_fetch_add(&blocks, 1);
    if (oldSize < largeBytes && size >= largeBytes)
        atomic_fetch_add(&largeBlocks, 1);
}

void *malloc(size_t size)
{
    count(0, size);
    return __libc_malloc(size);
}

void *calloc(size_t number, size_t size)
{
    count(0, number * size);
    return __libc_calloc(number, size);
}

void *realloc(void *block, size_t size)
{
    count(malloc_usable_size(block), size);
    return __libc_realloc(block, size);
}
