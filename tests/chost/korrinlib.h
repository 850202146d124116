#ifndef KORRIN_TESTS_KORRINLIB_H
#define KORRIN_TESTS_KORRINLIB_H

/* The library's functions, resolved at run time; korrin.h gives their types and constants only. */
struct KorrinLib {
    void *library;
    int (*open)(void);
    int (*close)(void);
    const char *(*getSoftVersion)(void);
    int (*enableDebugOutput)(int enable);
    void *(*createHandle)(void);
    int (*disposeHandle)(void *handle);
    int (*setParameter)(void *handle, const char *key, const char *value);
    const char *(*getParameter)(void *handle, const char *key);
    int (*checkEnable)(void *handle);
    int (*sendData)(void *handle, const char *data, int dataSize);
    int (*recvData)(void *handle, const char **data, int *dataSize);
    int (*sendFile)(void *handle, const char *filePath);
    int (*recvFile)(void *handle, const char *filePath);
};

/* Loads the library; ends the process when that fails. */
void loadKorrin(struct KorrinLib *lib);

#endif
