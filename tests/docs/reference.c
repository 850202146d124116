/* The examples of docs/reference.md, each between two lines with the function's name. Runs against
 * a local cloud: reference URL DIRECTORY. Exits 0 when each did what the manual says. */
#include <korrin.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static char downloadPath[4096];
static char uploadPath[4096];

static void require(int condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "not so: %s\n", what);
    exit(1);
}

/* [errors] */
static void printError(void *handle, const char *what)
{
    /* One text at a time: the next read takes the return buffer. */
    printf("%s: error %s, ", what, korrinGetParameter(handle, KORRIN_KEY_ERROR_NO));
    printf("%s, ", korrinGetParameter(handle, KORRIN_KEY_ERROR_TEXT));
    printf("%s\n", korrinGetParameter(handle, KORRIN_KEY_ERROR_DETAIL));
}
/* [errors] */

static void beforeOpening(void)
{
    require(korrinCreateHandle() == NULL, "a closed library makes no handle");
    /* [korrinGetSoftVersion] */
    printf("library %s\n", korrinGetSoftVersion());
    /* [korrinGetSoftVersion] */
    /* [korrinEnableDebugOutput] */
    const char *debug = getenv("DEVICE_CLOUD_DEBUG");
    korrinEnableDebugOutput(debug != NULL && strcmp(debug, "1") == 0);
    /* [korrinEnableDebugOutput] */
}

static int openLibrary(void)
{
    /* [korrinOpen] */
    if (!korrinOpen()) {
        fprintf(stderr, "out of memory\n");
        return 0;
    }
    /* [korrinOpen] */
    return 1;
}

static void *createHandle(void)
{
    /* [korrinCreateHandle] */
    void *handle = korrinCreateHandle();
    if (!handle)
        fprintf(stderr, "closed, or out of memory\n");
    /* [korrinCreateHandle] */
    return handle;
}

static void setParameters(void *handle, const char *url, const char *directory)
{
    /* [korrinSetParameter] */
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, url);
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
    korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
    korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, "1.0");
    if (!korrinSetParameter(handle, "produkt_no", "KX-100"))
        printError(handle, "set"); /* 104: there is no such key */
    /* [korrinSetParameter] */
    require(strcmp(korrinGetParameter(handle, KORRIN_KEY_ERROR_NO), "104") == 0, "104");
    korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, directory);
}

static void check(void *handle)
{
    /* [korrinCheckEnable] */
    if (!korrinCheckEnable(handle))
        printError(handle, "check");
    else if (korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER)[0] == '\0')
        printf("nothing newer\n");
    else
        printf("%s is available\n", korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER));
    /* [korrinCheckEnable] */
    require(strcmp(korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER), "2.0") == 0, "2.0");
}

static void readParameters(void *handle)
{
    /* [korrinGetParameter] */
    char version[64];
    snprintf(version, sizeof version, "%s", korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER));
    /* Reads again into the same buffer; the copy stays. */
    printf("%s: %s\n", version, korrinGetParameter(handle, KORRIN_KEY_MESSAGE));
    /* [korrinGetParameter] */
    require(strcmp(version, "2.0") == 0, "the copy stays");
}

static void receive(void *handle)
{
    char *image = NULL;
    /* [korrinRecvData] */
    const char *data;
    int size;
    korrinSetParameter(handle, KORRIN_KEY_DOWNLOAD_FILE_PATH, "kx-100-2.0.bin");
    if (!korrinRecvData(handle, &data, &size))
        printError(handle, "receive");
    else if ((image = malloc((size_t)size + 1)))
        memcpy(image, data, (size_t)size + 1); /* with the NUL that follows the data */
    /* [korrinRecvData] */
    require(image && size == 1048576, "1 MiB was received");
    free(image);
}

static void receiveFile(void *handle)
{
    /* [korrinRecvFile] */
    korrinSetParameter(handle, KORRIN_KEY_DOWNLOAD_FILE_PATH, "kx-100-2.0.bin");
    if (!korrinRecvFile(handle, downloadPath))
        printError(handle, "receive file"); /* an older file is still there, unless it is 403 */
    /* [korrinRecvFile] */
    require(strcmp(korrinGetParameter(handle, KORRIN_KEY_ERROR_NO), "0") == 0, "received");
}

static void sendResult(void *handle)
{
    /* [korrinSendData] */
    korrinSetParameter(handle, KORRIN_KEY_SEND_DATA_TYPE, KORRIN_SEND_DATA_TYPE_RESULT);
    korrinSetParameter(handle, KORRIN_KEY_RESULT, KORRIN_RESULT_SUCCEEDED);
    korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, "2.0"); /* what is installed now */
    if (!korrinSendData(handle, NULL, 0))
        printError(handle, "send result");

    const char log[] = "unpacked, verified, installed";
    korrinSetParameter(handle, KORRIN_KEY_SEND_DATA_TYPE, KORRIN_SEND_DATA_TYPE_UPDATE_LOG);
    if (!korrinSendData(handle, log, (int)strlen(log)))
        printError(handle, "send log");
    /* [korrinSendData] */
    require(strcmp(korrinGetParameter(handle, KORRIN_KEY_STATUS), "1") == 0, "the log was taken");
}

static void upload(void *handle, const char *url)
{
    char bucketUrl[4096];
    snprintf(bucketUrl, sizeof bucketUrl, "%skx-logs/", url);
    /* [korrinSendFile] */
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_S3_UPLOAD);
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, bucketUrl); /* ends in "/" */
    korrinSetParameter(handle, KORRIN_KEY_AWS_ACCESS_KEY, getenv("AWS_ACCESS_KEY_ID"));
    korrinSetParameter(handle, KORRIN_KEY_AWS_SECRET_ACCESS_KEY, getenv("AWS_SECRET_ACCESS_KEY"));
    if (!korrinSendFile(handle, uploadPath))
        printError(handle, "upload");
    /* [korrinSendFile] */
    require(strcmp(korrinGetParameter(handle, KORRIN_KEY_ERROR_NO), "0") == 0, "uploaded");
}

static void dispose(void *handle)
{
    /* [korrinDisposeHandle] */
    korrinDisposeHandle(handle);
    handle = NULL; /* and so is all text and data that came from it */
    /* [korrinDisposeHandle] */
    require(korrinDisposeHandle(handle) == 0, "null is refused");
}

static void closeLibrary(void)
{
    /* [korrinClose] */
    korrinClose(); /* disposes of the handles that are left */
    /* [korrinClose] */
    require(korrinCreateHandle() == NULL, "a closed library makes no handle");
}

int main(int argc, char **argv)
{
    void *handle;
    require(argc == 3, "two arguments");
    snprintf(downloadPath, sizeof downloadPath, "%s/image.bin", argv[2]);
    snprintf(uploadPath, sizeof uploadPath, "%s/image.bin", argv[2]);
    beforeOpening();
    if (!openLibrary() || !(handle = createHandle()))
        return 1;
    setParameters(handle, argv[1], argv[2]);
    check(handle);
    readParameters(handle);
    receive(handle);
    receiveFile(handle);
    sendResult(handle);
    upload(handle, argv[1]);
    dispose(handle);
    closeLibrary();
    return 0;
}
