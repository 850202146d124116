#include "korrinlib.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static void resolve(void *library, const char *name, void *function)
{
    void *address = dlsym(library, name);
    if (!address) {
        fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    memcpy(function, &address, sizeof address);
}

void loadKorrin(struct KorrinLib *lib)
{
    lib->library = dlopen(KORRIN_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (!lib->library) {
        fprintf(stderr, "%s\n", dlerror());
        exit(2);
    }
    resolve(lib->library, "korrinOpen", &lib->open);
    resolve(lib->library, "korrinClose", &lib->close);
    resolve(lib->library, "korrinGetSoftVersion", &lib->getSoftVersion);
    resolve(lib->library, "korrinEnableDebugOutput", &lib->enableDebugOutput);
    resolve(lib->library, "korrinCreateHandle", &lib->createHandle);
    resolve(lib->library, "korrinDisposeHandle", &lib->disposeHandle);
    resolve(lib->library, "korrinSetParameter", &lib->setParameter);
    resolve(lib->library, "korrinGetParameter", &lib->getParameter);
    resolve(lib->library, "korrinCheckEnable", &lib->checkEnable);
    resolve(lib->library, "korrinSendData", &lib->sendData);
    resolve(lib->library, "korrinRecvData", &lib->recvData);
    resolve(lib->library, "korrinSendFile", &lib->sendFile);
    resolve(lib->library, "korrinRecvFile", &lib->recvFile);
}
