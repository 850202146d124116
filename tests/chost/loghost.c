/* A C host, linked to the library, whose threads make calls with a cloud log, one handle each.
 * Usage: loghost URL DIRECTORY NAME THREADS CALLS. The product number of call C of thread T is
 * "NAME-T-C". Exits 0 when all calls returned. */
#include "korrin.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

enum { MAX_THREADS = 64 };

static char **arguments;

static void *makeCalls(void *number)
{
    const int calls = atoi(arguments[5]);
    void *handle = korrinCreateHandle();
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, arguments[1]);
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
    korrinSetParameter(handle, KORRIN_KEY_RECV_TIMEOUT, "20");
    korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, arguments[2]);
    for (int call = 0; call < calls; ++call) {
        char product[64];
        snprintf(product, sizeof product, "%s-%d-%d", arguments[3], *(int *)number, call);
        korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, product);
        korrinCheckEnable(handle);
    }
    korrinDisposeHandle(handle);
    return NULL;
}

int main(int count, char **values)
{
    pthread_t threads[MAX_THREADS];
    int numbers[MAX_THREADS];
    if (count != 6 || atoi(values[4]) > MAX_THREADS)
        return 2;
    arguments = values;
    korrinOpen();
    const int threadCount = atoi(values[4]);
    for (int i = 0; i < threadCount; ++i) {
        numbers[i] = i;
        if (pthread_create(&threads[i], NULL, makeCalls, &numbers[i]) != 0)
            return 1;
    }
    for (int i = 0; i < threadCount; ++i)
        pthread_join(threads[i], NULL);
    korrinClose();
    return 0;
}
