/* The shortest host: asks once whether there is a newer version. Usage: quickstart [URL] */
#include <korrin.h>
#include <stdio.h>

int main(int argc, char **argv)
{
    const char *url = argc > 1 ? argv[1] : "https://cloud.example.com/";
    /* [check] */
    korrinOpen();
    void *handle = korrinCreateHandle();
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, url);
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
    korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
    korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, "1.0");
    if (korrinCheckEnable(handle))
        printf("new version: %s\n", korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER));
    else
        printf("failed: %s\n", korrinGetParameter(handle, KORRIN_KEY_ERROR_DETAIL));
    korrinDisposeHandle(handle);
    korrinClose();
    /* [check] */
    return 0;
}
