#include "awssignature.h"

#include "base64.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace
{

const int64_t MAX_SKEW_SECONDS = 15 * 60;

std::string header(const ServiceRequest &request, const std::string &name)
{
    const auto found = request.headers.find(name);
    return found == request.headers.end() ? std::string() : found->second;
}

/// RFC 9110, section 5.6.7; a day of one digit is taken as well. -1 when it is no date.
int64_t secondsOf(const std::string &date)
{
    std::tm parsed = {};
    const char *end = strptime(date.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parsed);
    return end && *end == '\0' ? timegm(&parsed) : -1;
}

std::string hmacSha1(const std::string &key, const std::string &text)
{
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char *>(text.data()), text.size(), mac, &size);
    return std::string(reinterpret_cast<const char *>(mac), size);
}

/// "x-amz-…" headers: names in lower case, in their order, one per line.
std::string amzHeaders(const ServiceRequest &request)
{
    std::map<std::string, std::string> values;
    for (const auto &[name, value] : request.headers) {
        std::string lower = name;
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (lower.compare(0, 6, "x-amz-") == 0)
            values[lower] += (values[lower].empty() ? "" : ",") + value;
    }
    std::string result;
    for (const auto &[name, value] : values)
        result += name + ":" + value + "\n";
    return result;
}

bool sameText(const std::string &a, const std::string &b)
{
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace

std::string stringToSign(const ServiceRequest &request)
{
    const bool hasAmzDate = request.headers.count("x-amz-date") > 0;
    return request.method + "\n" + header(request, "Content-MD5") + "\n"
        + header(request, "Content-Type") + "\n" + (hasAmzDate ? "" : header(request, "Date"))
        + "\n" + amzHeaders(request) + request.rawPath;
}

SignatureFault verifySignature(const ServiceRequest &request,
                               const std::map<std::string, std::string> &secretByAccessKey,
                               int64_t nowSeconds)
{
    const std::string authorization = header(request, "Authorization");
    const size_t colon = authorization.rfind(':');
    if (authorization.compare(0, 4, "AWS ") != 0 || colon == std::string::npos)
        return {"AccessDenied", "Access Denied", ""};
    const std::string accessKey = authorization.substr(4, colon - 4);

    const std::string amzDate = header(request, "x-amz-date");
    const int64_t date = secondsOf(amzDate.empty() ? header(request, "Date") : amzDate);
    if (date < 0)
        return {"AccessDenied", "AWS authentication requires a valid Date or x-amz-date header",
                ""};
    if (std::abs(date - nowSeconds) > MAX_SKEW_SECONDS)
        return {"RequestTimeTooSkewed",
                "The difference between the request time and the current time is too large.", ""};

    const auto secret = secretByAccessKey.find(accessKey);
    if (secret == secretByAccessKey.end())
        return {"InvalidAccessKeyId",
                "The AWS Access Key Id you provided does not exist in our records.", ""};
    const std::string text = stringToSign(request);
    if (!sameText(toBase64(hmacSha1(secret->second, text)), authorization.substr(colon + 1)))
        return {"SignatureDoesNotMatch",
                "The request signature we calculated does not match the signature you provided. "
                "Check your key and signing method.",
                text};
    return {};
}
