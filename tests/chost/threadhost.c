/* A C host that uses the library from threads of its own, and checks that opening and exchanging
 * leave the process as it was. Usage: threadhost MODE URL. Exits 0 when all went well. */
#include "korrin.h"
#include "korrinlib.h"

#include <dirent.h>
#include <dlfcn.h>
#include <locale.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

extern char **environ;

enum { WORKERS = 8, CYCLES = 100, SIGNALS = 32 };

static struct KorrinLib lib;
static const char *url;

static void fail(const char *what)
{
    fprintf(stderr, "failed: %s\n", what);
    exit(1);
}

static void require(int condition, const char *what)
{
    if (!condition)
        fail(what);
}

static void exchange(void)
{
    void *handle = lib.createHandle();
    require(handle != NULL, "create");
    lib.setParameter(handle, KORRIN_KEY_SERVER_URL, url);
    lib.setParameter(handle, KORRIN_KEY_PRODUCT_NO, "PN");
    lib.setParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_REMOTE_ACCESS);
    lib.setParameter(handle, KORRIN_KEY_RECV_TIMEOUT, "10");
    if (!lib.checkEnable(handle))
        fail(lib.getParameter(handle, KORRIN_KEY_ERROR_DETAIL));
    require(lib.disposeHandle(handle), "dispose");
}

static void *exchangeThread(void *unused)
{
    exchange();
    return unused;
}

static void *openThread(void *unused)
{
    require(lib.open(), "open");
    exchange();
    return unused;
}

static void runThreads(void *(*function)(void *), int count)
{
    pthread_t threads[WORKERS];
    for (int i = 0; i < count; ++i)
        require(pthread_create(&threads[i], NULL, function, NULL) == 0, "thread");
    for (int i = 0; i < count; ++i)
        pthread_join(threads[i], NULL);
}

static void onMainThread(void)
{
    require(lib.open(), "open");
    exchange();
    require(lib.close(), "close");
}

/* The thread that opened is gone when others exchange and the main thread closes. */
static void onWorkerThread(void)
{
    runThreads(openThread, 1);
    exchange();
    runThreads(exchangeThread, 1);
    require(lib.close(), "close");
    runThreads(openThread, 1);
    require(lib.close(), "second close");
}

static void onEightWorkers(void)
{
    require(lib.open(), "open");
    runThreads(exchangeThread, WORKERS);
    require(lib.close(), "close");
}

static void onEightOpeningWorkers(void)
{
    runThreads(openThread, WORKERS);
    require(lib.close(), "close");
}

static int countOpenFiles(void)
{
    DIR *directory = opendir("/proc/self/fd");
    int count = 0;
    require(directory != NULL, "opendir");
    while (readdir(directory))
        ++count;
    closedir(directory);
    return count;
}

static void inCycles(void)
{
    int openFiles = 0;
    for (int i = 0; i < CYCLES; ++i) {
        onMainThread();
        if (i == 0)
            openFiles = countOpenFiles(); /* Qt keeps some from its first use on */
    }
    require(countOpenFiles() == openFiles, "files closed");
}

static void unloaded(void)
{
    onMainThread();
    require(dlclose(lib.library) == 0, "dlclose");
    loadKorrin(&lib);
    onMainThread();
    require(dlclose(lib.library) == 0, "dlclose");
}

struct ProcessState {
    char locale[512];
    char directory[4096];
    char environment[65536];
    struct sigaction signals[SIGNALS];
    sigset_t blocked;
    mode_t creationMask;
};

static void readState(struct ProcessState *state)
{
    memset(state, 0, sizeof *state);
    snprintf(state->locale, sizeof state->locale, "%s", setlocale(LC_ALL, NULL));
    require(getcwd(state->directory, sizeof state->directory) != NULL, "getcwd");
    for (char **variable = environ; *variable; ++variable) {
        const size_t used = strlen(state->environment);
        snprintf(state->environment + used, sizeof state->environment - used, "%s\n", *variable);
    }
    for (int i = 1; i < SIGNALS; ++i) {
        if (i != SIGPIPE)
            sigaction(i, NULL, &state->signals[i]);
    }
    pthread_sigmask(SIG_SETMASK, NULL, &state->blocked);
    state->creationMask = umask(0);
    umask(state->creationMask);
}

static void compareStates(const struct ProcessState *a, const struct ProcessState *b)
{
    require(strcmp(a->locale, b->locale) == 0, "locale kept");
    require(strcmp(a->directory, b->directory) == 0, "directory kept");
    require(strcmp(a->environment, b->environment) == 0, "environment kept");
    require(a->creationMask == b->creationMask, "file creation mask kept");
    for (int i = 1; i < SIGNALS; ++i) {
        require(a->signals[i].sa_handler == b->signals[i].sa_handler, "signal handler kept");
        require(a->signals[i].sa_flags == b->signals[i].sa_flags, "signal flags kept");
        require(sigismember(&a->blocked, i) == sigismember(&b->blocked, i), "signal mask kept");
    }
}

static void onSignal(int number)
{
    (void)number;
}

static void leavingTheHostAsItWas(void)
{
    static struct ProcessState before;
    static struct ProcessState opened;
    static struct ProcessState after;
    readState(&before);
    require(lib.open(), "open");
    readState(&opened);
    compareStates(&before, &opened);
    exchange();
    readState(&after);
    compareStates(&before, &after);
    require(lib.close(), "close");
    readState(&after);
    compareStates(&before, &after);
}

static void leavingAHostWithoutSetlocaleAsItWas(void)
{
    require(strcmp(setlocale(LC_ALL, NULL), "C") == 0, "locale at the start");
    leavingTheHostAsItWas();
}

static void leavingAHostWithItsOwnStateAsItWas(void)
{
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_SETMASK, &blocked, NULL);
    signal(SIGTERM, onSignal);
    signal(SIGCHLD, SIG_IGN);
    require(setlocale(LC_ALL, "C") && setlocale(LC_CTYPE, "C.UTF-8"), "setlocale");
    leavingTheHostAsItWas();
}

int main(int argc, char **argv)
{
    static const struct {
        const char *name;
        void (*run)(void);
    } modes[] = {
        {"main", onMainThread},
        {"worker", onWorkerThread},
        {"eight", onEightWorkers},
        {"cycles", inCycles},
        {"unload", unloaded},
        {"eightopen", onEightOpeningWorkers},
        {"state", leavingAHostWithoutSetlocaleAsItWas},
        {"ownstate", leavingAHostWithItsOwnStateAsItWas},
    };
    if (argc != 3)
        return 2;
    loadKorrin(&lib);
    url = argv[2];
    for (size_t i = 0; i < sizeof modes / sizeof *modes; ++i) {
        if (strcmp(modes[i].name, argv[1]) == 0) {
            modes[i].run();
            return 0;
        }
    }
    return 2;
}
