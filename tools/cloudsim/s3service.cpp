#include "s3service.h"

#include "awssignature.h"

#include <openssl/evp.h>

namespace
{

/// "/bucket/a/key": "bucket"
std::string bucketOf(const std::string &path)
{
    const size_t slash = path.find('/', 1);
    return path.substr(1, slash == std::string::npos ? slash : slash - 1);
}

std::string keyOf(const std::string &path)
{
    const size_t slash = path.find('/', 1);
    return slash == std::string::npos ? std::string() : path.substr(slash + 1);
}

/// Amazon S3's form of an error.
Answer error(int status, const std::string &code, const std::string &message,
             const ServiceRequest &request, const std::string &stringToSign = {})
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error><Code>" + code
        + "</Code><Message>" + message + "</Message><Resource>" + xmlEscaped(request.rawPath)
        + "</Resource>";
    if (!stringToSign.empty())
        text += "<StringToSign>" + xmlEscaped(stringToSign) + "</StringToSign>";
    Answer answer;
    answer.status = status;
    answer.contentType = "application/xml";
    answer.body = Body(text + "</Error>");
    return answer;
}

/// The MD5 of the data in hexadecimal, in quotes, as the entity tag of a simple upload is.
std::string etagOf(const std::string &data)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(data.data(), data.size(), digest, &size, EVP_md5(), nullptr);
    const char digits[] = "0123456789abcdef";
    std::string text = "\"";
    for (unsigned int i = 0; i < size; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text + "\"";
}

} // namespace

bool S3Service::serves(const ServiceRequest &request) const
{
    return request.method == "PUT" || catalogue.hasBucket(bucketOf(request.path));
}

Answer S3Service::answer(const ServiceRequest &request, const Fault &fault, bool &stored) const
{
    if (fault.refuses)
        return error(403, xmlEscaped(fault.code), xmlEscaped(fault.message), request);
    const std::string bucket = bucketOf(request.path);
    const std::string key = keyOf(request.path);
    if (!catalogue.hasBucket(bucket))
        return error(404, "NoSuchBucket", "The specified bucket does not exist", request);
    if (request.method == "PUT" && !key.empty())
        return put(request, bucket, key, stored);
    if (request.method == "GET" || request.method == "HEAD")
        return get(request, bucket, key);
    return error(405, "MethodNotAllowed",
                 "The specified method is not allowed against this resource.", request);
}

Answer S3Service::put(const ServiceRequest &request, const std::string &bucket,
                      const std::string &key, bool &stored) const
{
    const SignatureFault fault =
        verifySignature(request, catalogue.secretByAccessKey, nowMs() / 1000);
    if (!fault.code.empty())
        return error(403, fault.code, fault.message, request, fault.stringToSign);
    const auto type = request.headers.find("Content-Type");
    StoredObject object{bucket,
                        key,
                        type == request.headers.end() ? "binary/octet-stream" : type->second,
                        etagOf(request.body),
                        request.body,
                        nowMs()};
    store.putObject(object);
    stored = true;
    Answer answer;
    answer.headers["ETag"] = object.etag;
    return answer;
}

Answer S3Service::get(const ServiceRequest &request, const std::string &bucket,
                      const std::string &key) const
{
    std::optional<StoredObject> object = store.object(bucket, key);
    if (!object)
        return error(404, "NoSuchKey", "The specified key does not exist.", request);
    Answer answer;
    answer.contentType = object->contentType;
    answer.headers["ETag"] = object->etag;
    // The page has the same origin: no script in an object may act in its name.
    answer.headers["Content-Security-Policy"] = "sandbox";
    answer.headers["X-Content-Type-Options"] = "nosniff";
    answer.body = Body(std::move(object->data));
    return answer;
}
