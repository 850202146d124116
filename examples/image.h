/* What the update agent does with an image: verifies it, puts it in place. */
#ifndef IMAGE_H
#define IMAGE_H

#include <openssl/evp.h>

/* The PEM file's public key; NULL when there is none. Freed with EVP_PKEY_free(). */
EVP_PKEY *readPublicKey(const char *path);

/* 1 when the image ends in the key's Ed25519 signature (RFC 8032) of what stands before it. */
int isImageSigned(EVP_PKEY *key, const char *image, int size);

/* Replaces the file whole or not at all, also when the power fails meanwhile. 1 when it did. */
int installImage(const char *path, const char *image, int size);

#endif
