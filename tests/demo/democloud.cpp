// A small local cloud: update service and S3-style bucket on one port.
//
// Usage: democloud [PORT]   (0 or none: a free one)
// Prints its URL, then a line for each exchange. Ends with standard input.

#include "scriptedserver.h"

#include <QMessageAuthenticationCode>

#include <cstdio>
#include <cstdlib>

using namespace korrintest;

namespace
{

const QByteArray UPDATE_FILE = "the new software, version 2.0\n";
const QByteArray ACCESS_KEY = "DEMOACCESSKEY";
const QByteArray SECRET_KEY = "demo/Secret+key";

/// AWS Signature Version 2 of a request without amz headers and sub-resources.
QByteArray expectedAuthorization(const HttpRequest &request)
{
    const QByteArray stringToSign = request.method + "\n\n" + request.header("Content-Type") + '\n'
        + request.header("Date") + '\n' + QByteArray::fromPercentEncoding(request.path());
    const QByteArray signature =
        QMessageAuthenticationCode::hash(stringToSign, SECRET_KEY, QCryptographicHash::Sha1);
    return "AWS " + ACCESS_KEY + ':' + signature.toBase64();
}

QByteArray answerTo(const HttpRequest &request)
{
    const QByteArray is = requestedIs(request);
    if (request.method == "PUT") {
        return request.header("Authorization") == expectedAuthorization(request)
            ? answer(200, "OK", QByteArray(), "")
            : answer(403, "Forbidden", "application/xml",
                     "<Error><Code>SignatureDoesNotMatch</Code></Error>");
    }
    if (is == "chkud")
        return xmlAnswer(is, "1", "0", "update found", "<new_soft_ver>2.0</new_soft_ver>");
    if (is == "dludf")
        return answer(200, "OK", "application/zip", UPDATE_FILE);
    return xmlAnswer(is, "1", "0", "accepted");
}

/// What was asked; of a log record, the call that it reports and how that ended.
QByteArray describe(const HttpRequest &request)
{
    const QByteArray is = requestedIs(request);
    if (is == "cloudlog") {
        return "  log record: " + formValue(request.body, "fn") + ", error "
            + formValue(request.body, "en");
    }
    return "  " + request.method + ' ' + request.target
        + (request.method == "POST" ? ' ' + request.body : QByteArray());
}

} // namespace

int main(int argc, char **argv)
{
    const quint16 port = argc > 1 ? static_cast<quint16>(std::atoi(argv[1])) : 0;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const ScriptedServer server(
        [](Connection &connection, const HttpRequest &request) {
            const QByteArray bytes = answerTo(request);
            std::printf("%s -> %s\n", describe(request).constData(), bytes.mid(9, 3).constData());
            connection.send(bytes);
        },
        port);
    std::printf("%s\n", server.url().constData());
    while (std::getchar() != EOF) { }
    return 0;
}
