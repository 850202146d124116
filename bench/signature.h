#ifndef KORRIN_BENCH_SIGNATURE_H
#define KORRIN_BENCH_SIGNATURE_H

#include <cstring>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <string>

/// HMAC-SHA1 in base64, as AWS Signature Version 2 has it.
inline std::string signatureOf(const char *secret, const std::string &text)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    HMAC(EVP_sha1(), secret, static_cast<int>(std::strlen(secret)),
         reinterpret_cast<const unsigned char *>(text.data()), text.size(), digest, &size);
    unsigned char encoded[4 * EVP_MAX_MD_SIZE / 3 + 4];
    const int length = EVP_EncodeBlock(encoded, digest, static_cast<int>(size));
    return std::string(reinterpret_cast<const char *>(encoded), static_cast<std::size_t>(length));
}

#endif
