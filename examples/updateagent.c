/* An update agent: asks for a newer version, downloads it, verifies its signature, puts it in place
 * and reports the outcome; goes on when the server is away, until SIGTERM or SIGINT.
 *
 *   updateagent URL DIRECTORY PUBLIC-KEY SECONDS
 *
 * Asks every SECONDS, while that fails ever more seldom. The image becomes DIRECTORY/image.bin;
 * the cloud log waits in DIRECTORY. */
#include "image.h"

#include <korrin.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static const char PRODUCT[] = "KX-100";
static const long LONGEST_WAIT_S = 3600;
static char version[64] = "1.0";
static char refused[sizeof version] = ""; /* not downloaded again */
static char pendingResult[2] = "";        /* of an update, which the server does not know yet */
static char imagePath[4000];
static EVP_PKEY *publicKey;

/* Returns 0, for its caller to do the same. */
static int logFailure(void *handle, const char *what)
{
    /* One read at a time: the next one takes the return buffer. */
    printf("%s failed: %s ", what, korrinGetParameter(handle, KORRIN_KEY_ERROR_NO));
    printf("%s\n", korrinGetParameter(handle, KORRIN_KEY_ERROR_DETAIL));
    return 0;
}

static int report(void *handle)
{
    korrinSetParameter(handle, KORRIN_KEY_SEND_DATA_TYPE, KORRIN_SEND_DATA_TYPE_RESULT);
    korrinSetParameter(handle, KORRIN_KEY_RESULT, pendingResult);
    if (!korrinSendData(handle, NULL, 0))
        return logFailure(handle, "report");
    printf("reported: %s\n", pendingResult);
    pendingResult[0] = '\0';
    return 1;
}

/* [download] */
static int update(void *handle, const char *offered)
{
    const char *image; /* in the handle's return buffer: used up before anything else is read */
    int size, installed;
    char name[sizeof PRODUCT + sizeof version + 5];
    snprintf(name, sizeof name, "%s-%s.bin", PRODUCT, offered);
    korrinSetParameter(handle, KORRIN_KEY_DOWNLOAD_FILE_PATH, name);
    if (!korrinRecvData(handle, &image, &size))
        return logFailure(handle, "download");
    installed = isImageSigned(publicKey, image, size) && installImage(imagePath, image, size);
    printf("%s %s\n", offered, installed ? "installed" : "refused");
    snprintf(installed ? version : refused, sizeof version, "%s", offered);
    korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, version);
    snprintf(pendingResult, sizeof pendingResult, "%s",
             installed ? KORRIN_RESULT_SUCCEEDED : KORRIN_RESULT_FAILED);
    return report(handle);
}
/* [download] */

/* [offline] */
/* Whatever fails here is tried again later; the cloud log keeps the record meanwhile. */
static int askServer(void *handle)
{
    char offered[sizeof version];
    if (pendingResult[0] && !report(handle))
        return 0;
    if (!korrinCheckEnable(handle))
        return logFailure(handle, "check");
    /* Empty when there is nothing newer. */
    snprintf(offered, sizeof offered, "%s", korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER));
    return !offered[0] || strcmp(offered, refused) == 0 || update(handle, offered);
}
/* [offline] */

int main(int argc, char **argv)
{
    const long usual = argc == 5 ? atoi(argv[4]) : 0;
    struct timespec interval = {usual, 0};
    sigset_t ends;
    void *handle;
    if (usual < 1 || !(publicKey = readPublicKey(argv[3]))) {
        fprintf(stderr, "usage: updateagent URL DIRECTORY PUBLIC-KEY SECONDS\n");
        return 64;
    }
    setvbuf(stdout, NULL, _IOLBF, BUFSIZ);
    snprintf(imagePath, sizeof imagePath, "%s/image.bin", argv[2]);
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, NULL); /* in the library's threads too, for sigtimedwait() */

    if (!korrinOpen() || !(handle = korrinCreateHandle()))
        return 1;
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, argv[1]);
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
    korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, PRODUCT);
    korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, version);
    korrinSetParameter(handle, KORRIN_KEY_RECV_TIMEOUT, "10");
    korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, argv[2]);
    korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE, "100000");
    /* [offline] */
    /* In main(): ever more seldom while that fails. */
    do {
        if (askServer(handle))
            interval.tv_sec = usual;
        else if (interval.tv_sec <= LONGEST_WAIT_S / 2)
            interval.tv_sec *= 2;
        printf("next in %ld s\n", (long)interval.tv_sec);
    } while (sigtimedwait(&ends, NULL, &interval) < 0);
    /* [offline] */
    korrinClose(); /* disposes of the handle */
    EVP_PKEY_free(publicKey);
    return 0;
}
