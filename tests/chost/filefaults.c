/* Preloaded into a host: what it does with files below one directory goes wrong at the n-th time.
 *
 *   KORRIN_FAULT_DIR   the directory, absolute
 *   KORRIN_FAULT       CALL,N,ACTION[,forever]
 *
 * CALL is open, read, write, sync, rename, remove or any. ACTION is kill (the process, before the
 * call), short (a write of half the bytes), none, or the number of an error. A file ".struck" in
 * the directory tells that the n-th call was made; with none, ".calls" names all calls and their
 * files. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

enum { MAX_DESCRIPTORS = 4096, MAX_NAME = 64, KILL = -1, SHORT = -2, NONE = 0 };

static char directory[4096];
static char wantedCall[16];
static int wantedNumber;
static int action;
static int lasting;

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static int calls;
static char names[MAX_DESCRIPTORS][MAX_NAME]; /* empty: not below the directory */

static void *real(const char *name)
{
    return dlsym(RTLD_NEXT, name);
}

__attribute__((constructor)) static void readEnvironment(void)
{
    const char *path = getenv("KORRIN_FAULT_DIR");
    const char *fault = getenv("KORRIN_FAULT");
    if (!path || !fault)
        return;
    strncpy(directory, path, sizeof directory - 1);
    const char *comma = strchr(fault, ',');
    memcpy(wantedCall, fault, (size_t)(comma - fault));
    wantedNumber = atoi(comma + 1);
    const char *what = strchr(comma + 1, ',') + 1;
    action = strncmp(what, "kill", 4) == 0 ? KILL
        : strncmp(what, "short", 5) == 0   ? SHORT
                                           : atoi(what);
    lasting = strstr(what, ",forever") != NULL;
}

/* A path's name below the directory, "." for the directory; NULL for any other path. */
static const char *nameOfPath(const char *path)
{
    const size_t length = strlen(directory);
    if (length == 0 || strncmp(path, directory, length) != 0)
        return NULL;
    path += length + (path[length] == '/');
    return *path ? path : ".";
}

static const char *nameOf(int fd)
{
    return fd >= 0 && fd < MAX_DESCRIPTORS && names[fd][0] ? names[fd] : NULL;
}

static void watch(int fd, const char *name)
{
    if (fd >= 0 && fd < MAX_DESCRIPTORS)
        snprintf(names[fd], MAX_NAME, "%s", name ? name : "");
}

/* Adds a text to a file in the directory, past the functions below. */
static void leaveNote(const char *name, const char *text)
{
    char path[sizeof directory + 16];
    snprintf(path, sizeof path, "%s/%s", directory, name);
    const int flags = O_WRONLY | O_CREAT | O_APPEND;
    const long fd = syscall(SYS_openat, AT_FDCWD, path, flags, 0600);
    syscall(SYS_write, fd, text, strlen(text));
    syscall(SYS_close, fd);
}

static void noteCall(const char *call, const char *name)
{
    char line[2 * MAX_NAME];
    snprintf(line, sizeof line, "%s %s\n", call, name);
    leaveNote(".calls", line);
}

/* What befalls this call: NONE, SHORT, or an error number. Does not return from a kill. */
static int faultOf(const char *call, const char *name)
{
    if (action == NONE)
        noteCall(call, name);
    if (strcmp(wantedCall, "any") != 0 && strcmp(wantedCall, call) != 0)
        return NONE;
    pthread_mutex_lock(&mutex);
    const int number = ++calls;
    pthread_mutex_unlock(&mutex);
    if (lasting ? number < wantedNumber : number != wantedNumber)
        return NONE;
    if (number == wantedNumber)
        leaveNote(".struck", "");
    if (action == KILL)
        kill(getpid(), SIGKILL);
    return action;
}

static int fails(const char *name, const char *call)
{
    const int fault = name ? faultOf(call, name) : NONE;
    if (fault <= 0)
        return 0;
    errno = fault;
    return 1;
}

#define DEFINE_OPEN(name)                                                                          \
    int name(const char *path, int flags, ...)                                                     \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = (flags & (O_CREAT | __O_TMPFILE)) ? va_arg(arguments, mode_t) : 0;     \
        va_end(arguments);                                                                         \
        if (fails(nameOfPath(path), "open"))                                                       \
            return -1;                                                                             \
        int (*next)(const char *, int, ...) = (int (*)(const char *, int, ...))real(#name);        \
        const int fd = next(path, flags, mode);                                                    \
        watch(fd, nameOfPath(path));                                                               \
        return fd;                                                                                 \
    }
DEFINE_OPEN(open)
DEFINE_OPEN(open64)

int close(int fd)
{
    watch(fd, NULL);
    return ((int (*)(int))real("close"))(fd);
}

ssize_t read(int fd, void *out, size_t size)
{
    if (fails(nameOf(fd), "read"))
        return -1;
    return ((ssize_t(*)(int, void *, size_t))real("read"))(fd, out, size);
}

#define DEFINE_PREAD(name, offsetType)                                                             \
    ssize_t name(int fd, void *out, size_t size, offsetType offset)                                \
    {                                                                                              \
        if (fails(nameOf(fd), "read"))                                                             \
            return -1;                                                                             \
        return ((ssize_t(*)(int, void *, size_t, offsetType))real(#name))(fd, out, size, offset);  \
    }
DEFINE_PREAD(pread, off_t)
DEFINE_PREAD(pread64, off64_t)

/* The bytes that may be written, or -1. */
static ssize_t allowed(int fd, size_t size)
{
    const char *name = nameOf(fd);
    const int fault = name ? faultOf("write", name) : NONE;
    if (fault == SHORT)
        return (ssize_t)(size / 2);
    if (fault > 0) {
        errno = fault;
        return -1;
    }
    return (ssize_t)size;
}

ssize_t write(int fd, const void *data, size_t size)
{
    const ssize_t count = allowed(fd, size);
    return count < 0
        ? -1
        : ((ssize_t(*)(int, const void *, size_t))real("write"))(fd, data, (size_t)count);
}

#define DEFINE_PWRITE(name, offsetType)                                                            \
    ssize_t name(int fd, const void *data, size_t size, offsetType offset)                         \
    {                                                                                              \
        const ssize_t count = allowed(fd, size);                                                   \
        return count < 0 ? -1                                                                      \
                         : ((ssize_t(*)(int, const void *, size_t, offsetType))real(#name))(       \
                             fd, data, (size_t)count, offset);                                     \
    }
DEFINE_PWRITE(pwrite, off_t)
DEFINE_PWRITE(pwrite64, off64_t)

int fsync(int fd)
{
    return fails(nameOf(fd), "sync") ? -1 : ((int (*)(int))real("fsync"))(fd);
}

int ftruncate64(int fd, off64_t size)
{
    return fails(nameOf(fd), "write") ? -1 : ((int (*)(int, off64_t))real("ftruncate64"))(fd, size);
}

int rename(const char *from, const char *to)
{
    return fails(nameOfPath(from), "rename")
        ? -1
        : ((int (*)(const char *, const char *))real("rename"))(from, to);
}

int remove(const char *path)
{
    return fails(nameOfPath(path), "remove") ? -1 : ((int (*)(const char *))real("remove"))(path);
}
