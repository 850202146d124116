/* Preloaded into a test host: the calendar clock shows FAKE_TIME ("seconds" or "seconds.millis"
 * since 1970) for ever. Timers and time-outs use the monotonic clock, which goes on. */
#define _GNU_SOURCE
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

static int fixedTime(struct timespec *now)
{
    const char *text = getenv("FAKE_TIME");
    char *end;
    if (!text)
        return 0;
    now->tv_sec = (time_t)strtoll(text, &end, 10);
    now->tv_nsec = *end == '.' ? strtol(end + 1, NULL, 10) * 1000000L : 0;
    return 1;
}

int clock_gettime(clockid_t clock, struct timespec *now)
{
    if ((clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) && fixedTime(now))
        return 0;
    return (int)syscall(SYS_clock_gettime, clock, now);
}

int gettimeofday(struct timeval *restrict now, void *restrict zone)
{
    struct timespec precise;
    (void)zone;
    clock_gettime(CLOCK_REALTIME, &precise);
    now->tv_sec = precise.tv_sec;
    now->tv_usec = precise.tv_nsec / 1000;
    return 0;
}

time_t time(time_t *result)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (result)
        *result = now.tv_sec;
    return now.tv_sec;
}
