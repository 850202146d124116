/* Eight threads with a handle each, which check and download at the same time; what has not ended
 * after a while is ended by disposing of the handles.
 *
 *   eightthreads URL DIRECTORY SECONDS
 *
 * Exits 0 when every thread has its file. */
#include <korrin.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

enum { THREADS = 8 };

struct Worker {
    pthread_t thread;
    void *handle;
    char path[4096];
    int succeeded;
};

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
static int running = THREADS;

/* [worker] */
static void *work(void *argument)
{
    struct Worker *worker = argument;
    void *handle = worker->handle; /* nobody else calls with it, but to dispose of it */
    worker->succeeded = korrinCheckEnable(handle) && korrinRecvFile(handle, worker->path);
    pthread_mutex_lock(&mutex);
    /* Of a handle that has been disposed of there is nothing to read but "". */
    printf("%s: %s %s\n", worker->path, worker->succeeded ? "received" : "failed",
           korrinGetParameter(handle, KORRIN_KEY_ERROR_NO));
    --running;
    pthread_cond_signal(&changed);
    pthread_mutex_unlock(&mutex);
    return NULL;
}
/* [worker] */

static void *makeHandle(const char *url, const char *directory)
{
    void *handle = korrinCreateHandle();
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, url);
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
    korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
    korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, "1.0");
    korrinSetParameter(handle, KORRIN_KEY_DOWNLOAD_FILE_PATH, "kx-100-2.0.bin");
    korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, directory);
    return handle;
}

/* Waits until all threads are done or the time is up. */
static void waitForWorkers(int seconds)
{
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += seconds;
    pthread_mutex_lock(&mutex);
    while (running > 0 && pthread_cond_timedwait(&changed, &mutex, &deadline) == 0)
        ;
    pthread_mutex_unlock(&mutex);
}

int main(int argc, char **argv)
{
    static struct Worker workers[THREADS];
    int i, succeeded = 0;
    if (argc != 4) {
        fprintf(stderr, "usage: eightthreads URL DIRECTORY SECONDS\n");
        return 64;
    }
    if (!korrinOpen()) /* once, before there are threads */
        return 1;
    for (i = 0; i < THREADS; ++i) {
        workers[i].handle = makeHandle(argv[1], argv[2]);
        snprintf(workers[i].path, sizeof workers[i].path, "%s/%d.bin", argv[2], i);
        if (pthread_create(&workers[i].thread, NULL, work, &workers[i]) != 0)
            return 1;
    }
    waitForWorkers(atoi(argv[3]));
    /* [end] */
    /* Ends at once what still runs: those calls return 0 within milliseconds. */
    for (i = 0; i < THREADS; ++i)
        korrinDisposeHandle(workers[i].handle);
    for (i = 0; i < THREADS; ++i)
        pthread_join(workers[i].thread, NULL);
    korrinClose();
    /* [end] */
    for (i = 0; i < THREADS; ++i)
        succeeded += workers[i].succeeded;
    printf("%d of %d\n", succeeded, THREADS);
    return succeeded == THREADS ? 0 : 1;
}
