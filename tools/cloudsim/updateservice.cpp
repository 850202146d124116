#include "updateservice.h"

#include "version.h"

namespace
{

const std::string FINE = "0";
const std::string NO_NEWER_VERSION = "1";
const std::string UNKNOWN_PRODUCT = "10";
const std::string REMOTE_ACCESS_OFF = "11";
const std::string UNKNOWN_REQUEST = "12";
const std::string BAD_VALUE = "13";

Answer xml(const Subject &subject, bool granted, const std::string &code,
           const std::string &message, const std::string &newVersion = {})
{
    Elements elements = {{"is", subject.is},
                         {"status", granted ? "1" : "0"},
                         {"status_code", code},
                         {"message", message}};
    if (!newVersion.empty())
        elements.emplace_back("new_soft_ver", newVersion);
    return xmlAnswer(elements, subject.fault);
}

Answer unknownProduct(const Subject &subject)
{
    return xml(subject, false, UNKNOWN_PRODUCT, "Unknown product: " + subject.product);
}

Answer unknownRequest(const Subject &subject)
{
    return xml(subject, false, UNKNOWN_REQUEST, "Unknown request: " + subject.is);
}

Answer onlyWith(const std::string &method)
{
    Answer answer = Answer::text(405, "This path is for " + method + " requests.\n");
    answer.headers["Allow"] = method;
    return answer;
}

} // namespace

bool UpdateService::serves(const std::string &path)
{
    for (const char *known :
         {"/su/search", "/su/upload", "/su/download", "/ra/search", "/ra/upload", "/ra/download"}) {
        if (path == known)
            return true;
    }
    return false;
}

Answer UpdateService::answer(const ServiceRequest &request, Subject &subject) const
{
    const bool isUpload = request.path == "/su/upload" || request.path == "/ra/upload";
    const bool reads = request.method == "GET" || request.method == "HEAD";
    if (isUpload ? request.method != "POST" : !reads)
        return onlyWith(isUpload ? "POST" : "GET");
    if (subject.fault.refuses)
        return xml(subject, false, subject.fault.code, subject.fault.message);
    if (request.path == "/su/search")
        return search(subject);
    if (request.path == "/su/upload")
        return upload(subject);
    if (request.path == "/su/download")
        return download(subject);
    return remoteAccess(request, subject);
}

Answer UpdateService::search(const Subject &subject) const
{
    if (subject.is != "chkud")
        return unknownRequest(subject);
    const Product *product = catalogue.product(subject.product);
    if (!product)
        return unknownProduct(subject);
    if (!isNewerVersion(product->version, subject.version))
        return xml(subject, true, NO_NEWER_VERSION, "There is no newer version.");
    const std::string message = product->message(subject.items.value("lang"),
                                                 "Version " + product->version + " is available.");
    return xml(subject, true, FINE, message, product->version);
}

Answer UpdateService::upload(Subject &subject) const
{
    if (subject.is == "cloudlog") {
        subject.records.push_back({0, 0, subject.items});
        return xml(subject, true, FINE, "Recorded.");
    }
    if (subject.is != "nsv" && subject.is != "udlog")
        return unknownRequest(subject);
    if (!catalogue.product(subject.product))
        return unknownProduct(subject);
    Report report;
    report.product = subject.product;
    report.version = subject.version;
    if (subject.is == "nsv") {
        if (subject.result != "0" && subject.result != "1")
            return xml(subject, false, BAD_VALUE, "A result is 0 or 1.");
        report.kind = "result";
        report.result = subject.result;
    } else {
        report.kind = "update_log";
        report.text = subject.items.value("data");
    }
    subject.reports.push_back(report);
    return xml(subject, true, FINE, "Received.");
}

Answer UpdateService::download(const Subject &subject) const
{
    if (subject.is != "dludf")
        return Answer::text(400, "Unknown request.\n");
    const UpdateFile *file =
        catalogue.file(subject.items.value("file"), subject.items.value("nsv"));
    if (!file)
        return Answer::text(404, "There is no such file, or not in that version.\n");
    Answer answer;
    answer.contentType = "application/octet-stream";
    answer.body = file->body();
    return answer;
}

Answer UpdateService::remoteAccess(const ServiceRequest &request, const Subject &subject) const
{
    if (request.path == "/ra/download")
        return Answer::text(200, "Remote access data of the local cloud.\n");
    if (request.path == "/ra/upload")
        return xml(subject, true, FINE, "Received.");
    if (subject.is != "chkra")
        return unknownRequest(subject);
    const Product *product = catalogue.product(subject.product);
    if (!product)
        return unknownProduct(subject);
    if (!product->remoteAccess)
        return xml(subject, false, REMOTE_ACCESS_OFF, "Remote access is off.");
    return xml(subject, true, FINE, "Remote access is on.");
}
