/* A host in plain C that needs no server. */
#include <korrin.h>
#include <stdio.h>
#include <string.h>

static int keepsParameters(void *handle)
{
    return korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE)
        && strcmp(korrinGetParameter(handle, KORRIN_KEY_MODE), KORRIN_MODE_UPDATE) == 0;
}

int main(void)
{
    void *handle;
    int works;
    if (!korrinOpen())
        return 1;
    handle = korrinCreateHandle();
    works = handle && keepsParameters(handle);
    printf("%s\n", korrinGetSoftVersion());
    works = korrinDisposeHandle(handle) && works;
    works = korrinClose() && works;
    return works ? 0 : 1;
}
