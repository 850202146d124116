/* A preloaded unlink() that takes its time after the removal. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <unistd.h>

static const unsigned PAUSE_US = 500000;

int unlink(const char *path)
{
    int (*real)(const char *) = (int (*)(const char *))dlsym(RTLD_NEXT, "unlink");
    const int result = real(path);
    usleep(PAUSE_US);
    return result;
}
