#include "image.h"

#include <openssl/pem.h>
#include <stdio.h>
#include <unistd.h>

enum { SIGNATURE_BYTES = 64, MAX_PATH_BYTES = 4096 };

EVP_PKEY *readPublicKey(const char *path)
{
    FILE *file = fopen(path, "r");
    EVP_PKEY *key = file ? PEM_read_PUBKEY(file, NULL, NULL, NULL) : NULL;
    if (file)
        fclose(file);
    return key;
}

/* [verify] */
int isImageSigned(EVP_PKEY *key, const char *image, int size)
{
    const unsigned char *bytes = (const unsigned char *)image;
    EVP_MD_CTX *context;
    int valid;
    if (size <= SIGNATURE_BYTES || !(context = EVP_MD_CTX_new()))
        return 0;
    size -= SIGNATURE_BYTES;
    valid = EVP_DigestVerifyInit(context, NULL, NULL, NULL, key) == 1
        && EVP_DigestVerify(context, bytes + size, SIGNATURE_BYTES, bytes, (size_t)size) == 1;
    EVP_MD_CTX_free(context);
    return valid;
}
/* [verify] */

int installImage(const char *path, const char *image, int size)
{
    char newPath[MAX_PATH_BYTES];
    FILE *file;
    int written;
    if (snprintf(newPath, sizeof newPath, "%s.new", path) >= (int)sizeof newPath)
        return 0;
    if (!(file = fopen(newPath, "wb")))
        return 0;
    written = fwrite(image, 1, (size_t)size, file) == (size_t)size && fflush(file) == 0
        && fsync(fileno(file)) == 0;
    return fclose(file) == 0 && written && rename(newPath, path) == 0;
}
