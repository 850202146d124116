/* A plain C host: loads the library with dlopen and makes one call a run.
 *
 *   dlopenhost LIBRARY URL LOG-DIRECTORY check
 *   dlopenhost LIBRARY URL LOG-DIRECTORY download FILE
 *   dlopenhost LIBRARY URL LOG-DIRECTORY result 1|0
 *   dlopenhost LIBRARY URL LOG-DIRECTORY log TEXT
 *   dlopenhost LIBRARY URL LOG-DIRECTORY upload FILE
 *
 * Exits 0 when the call succeeded. Keys for the upload: AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY.
 */
#include "korrin.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* [load] */
static struct {
    int (*open)(void);
    int (*close)(void);
    void *(*createHandle)(void);
    int (*disposeHandle)(void *handle);
    int (*setParameter)(void *handle, const char *key, const char *value);
    const char *(*getParameter)(void *handle, const char *key);
    int (*checkEnable)(void *handle);
    int (*sendData)(void *handle, const char *data, int dataSize);
    int (*sendFile)(void *handle, const char *filePath);
    int (*recvFile)(void *handle, const char *filePath);
} korrin;

static void resolve(void *library, const char *name, void *function)
{
    void *address = dlsym(library, name);
    if (!address) {
        fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    /* ISO C knows no conversion from an object pointer to a function pointer. */
    memcpy(function, &address, sizeof address);
}

static void load(const char *path)
{
    void *library = dlopen(path, RTLD_NOW);
    if (!library) {
        fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    resolve(library, "korrinOpen", &korrin.open);
    resolve(library, "korrinClose", &korrin.close);
    resolve(library, "korrinCreateHandle", &korrin.createHandle);
    resolve(library, "korrinDisposeHandle", &korrin.disposeHandle);
    resolve(library, "korrinSetParameter", &korrin.setParameter);
    resolve(library, "korrinGetParameter", &korrin.getParameter);
    resolve(library, "korrinCheckEnable", &korrin.checkEnable);
    resolve(library, "korrinSendData", &korrin.sendData);
    resolve(library, "korrinSendFile", &korrin.sendFile);
    resolve(library, "korrinRecvFile", &korrin.recvFile);
}
/* [load] */

static int run(void *handle, const char *command, const char *argument)
{
    if (strcmp(command, "check") == 0)
        return korrin.checkEnable(handle);
    if (strcmp(command, "download") == 0) {
        korrin.setParameter(handle, KORRIN_KEY_DOWNLOAD_FILE_PATH, "kx-100-2.0.bin");
        return korrin.recvFile(handle, argument);
    }
    if (strcmp(command, "result") == 0) {
        korrin.setParameter(handle, KORRIN_KEY_SEND_DATA_TYPE, KORRIN_SEND_DATA_TYPE_RESULT);
        korrin.setParameter(handle, KORRIN_KEY_RESULT, argument);
        return korrin.sendData(handle, NULL, 0);
    }
    if (strcmp(command, "log") == 0) {
        korrin.setParameter(handle, KORRIN_KEY_SEND_DATA_TYPE, KORRIN_SEND_DATA_TYPE_UPDATE_LOG);
        return korrin.sendData(handle, argument, (int)strlen(argument));
    }
    korrin.setParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_S3_UPLOAD);
    korrin.setParameter(handle, KORRIN_KEY_AWS_ACCESS_KEY, getenv("AWS_ACCESS_KEY_ID"));
    korrin.setParameter(handle, KORRIN_KEY_AWS_SECRET_ACCESS_KEY, getenv("AWS_SECRET_ACCESS_KEY"));
    return korrin.sendFile(handle, argument);
}

int main(int argc, char **argv)
{
    void *handle;
    int succeeded;
    if (argc < 5 || (argc < 6 && strcmp(argv[4], "check") != 0)) {
        fprintf(stderr, "usage: dlopenhost LIBRARY URL LOG-DIRECTORY COMMAND [ARGUMENT]\n");
        return 64;
    }
    load(argv[1]);
    if (!korrin.open() || !(handle = korrin.createHandle()))
        return 1;
    korrin.setParameter(handle, KORRIN_KEY_SERVER_URL, argv[2]);
    korrin.setParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_SAVE_DIR, argv[3]);
    korrin.setParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
    korrin.setParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
    korrin.setParameter(handle, KORRIN_KEY_SOFT_VER, "1.0");
    korrin.setParameter(handle, KORRIN_KEY_LANGUAGE_CODE, "en");
    korrin.setParameter(handle, KORRIN_KEY_RECV_TIMEOUT, "5");

    succeeded = run(handle, argv[4], argc > 5 ? argv[5] : "");
    if (succeeded && strcmp(argv[4], "check") == 0)
        printf("new version: %s\n", korrin.getParameter(handle, KORRIN_KEY_NEW_SOFT_VER));
    printf("%s: error %s", succeeded ? "succeeded" : "failed",
           korrin.getParameter(handle, KORRIN_KEY_ERROR_NO));
    printf(", %s\n", korrin.getParameter(handle, KORRIN_KEY_ERROR_DETAIL));
    korrin.disposeHandle(handle);
    korrin.close();
    return succeeded ? 0 : 1;
}
