/* The shortest host: asks once whether there is a newer version. Usage: quickstart [URL]
 * Exit status: 0 asked, 1 failed. */
#include <korrin.h>
#include <stdio.h>

int main(int argc, char **argv)
{
    const char *url = argc > 1 ? argv[1] : "https://cloud.example.com/";
    /* [check] */
    if (!korrinOpen())
        return 1; // the process can open no more files
    void *handle = korrinCreateHandle();
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, url);
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
    korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
    korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, "1.0");
    korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE, "0"); // keep no log file
    int checked = korrinCheckEnable(handle);
    if (checked) {
        const char *offered = korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER);
        printf("new version: %s\n", offered[0] ? offered : "none");
    } else {
        printf("failed: %s\n", korrinGetParameter(handle, KORRIN_KEY_ERROR_DETAIL));
    }
    korrinDisposeHandle(handle);
    korrinClose();
    /* [check] */
    return checked ? 0 : 1;
}
