#include "curl.h"
#include "simulator.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QLocale>
#include <QMessageAuthenticationCode>
#include <QTemporaryFile>
#include <QtTest>

using namespace korrintest;

namespace
{

const QByteArray ACCESS_KEY = "KORRINSIMACCESSKEY";
const QByteArray SECRET_KEY = "korrin/sim+secret";

QByteArray dateAt(int offsetSeconds)
{
    return QLocale::c()
               .toString(QDateTime::currentDateTimeUtc().addSecs(offsetSeconds),
                         QStringLiteral("ddd, dd MMM yyyy hh:mm:ss"))
               .toLatin1()
        + " GMT";
}

QByteArray authorization(const QByteArray &stringToSign, const QByteArray &accessKey = ACCESS_KEY,
                         const QByteArray &secret = SECRET_KEY)
{
    return "Authorization: AWS " + accessKey + ':'
        + QMessageAuthenticationCode::hash(stringToSign, secret, QCryptographicHash::Sha1)
              .toBase64();
}

QByteArray codeOf(const CurlResult &result)
{
    const int begin = int(result.body.indexOf("<Code>")) + 6;
    return result.body.mid(begin, result.body.indexOf("</Code>") - begin);
}

} // namespace

/// Signed uploads (Amazon S3 REST API, "Signing and authenticating REST requests") as other clients
/// than the library make them.
class tst_Signature : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void rightSignature_data();
    void rightSignature();
    void wrongRequest_data();
    void wrongRequest();
    void wrongSignatureTellsWhatToSign();
    void largeBodyWaitsForNothing();

private:
    CurlResult put(const QByteArray &path, const QList<QByteArray> &headers,
                   const QByteArray &body = "data");

    Simulator simulator;
};

void tst_Signature::initTestCase()
{
    QVERIFY(simulator.start());
}

CurlResult tst_Signature::put(const QByteArray &path, const QList<QByteArray> &headers,
                              const QByteArray &body)
{
    QList<QByteArray> arguments = {"-X", "PUT", "--data-binary", body, "-H", "Expect:"};
    for (const QByteArray &header : headers)
        arguments << "-H" << header;
    return curl(arguments << simulator.url() + path);
}

void tst_Signature::rightSignature_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QList<QByteArray>>("headers");
    QTest::addColumn<QByteArray>("stringToSign");
    QTest::addColumn<QByteArray>("body");

    const QByteArray date = dateAt(0);
    const QList<QByteArray> plain = {"Date: " + date, "Content-Type: text/plain"};
    QTest::newRow("plain") << QByteArray("kx-logs/a") << plain
                           << "PUT\n\ntext/plain\n" + date + "\n/kx-logs/a" << QByteArray("data");
    QTest::newRow("no body") << QByteArray("kx-logs/b") << plain
                             << "PUT\n\ntext/plain\n" + date + "\n/kx-logs/b" << QByteArray();
    QTest::newRow("no type") << QByteArray("kx-logs/c")
                             << QList<QByteArray>{"Date: " + date, "Content-Type:"}
                             << "PUT\n\n\n" + date + "\n/kx-logs/c" << QByteArray("data");
    QTest::newRow("MD5") << QByteArray("kx-logs/d")
                         << plain + QList<QByteArray>{"Content-MD5: jXd/OF09/siBXSD3SWAm3A=="}
                         << "PUT\njXd/OF09/siBXSD3SWAm3A==\ntext/plain\n" + date + "\n/kx-logs/d"
                         << QByteArray("data");
    QTest::newRow("escaped path") << QByteArray("kx-logs/a%20b/%C3%BC") << plain
                                  << "PUT\n\ntext/plain\n" + date + "\n/kx-logs/a%20b/%C3%BC"
                                  << QByteArray("data");
    QTest::newRow("x-amz-date instead of Date")
        << QByteArray("kx-logs/e")
        << QList<QByteArray>{"x-amz-date: " + date, "Content-Type: text/plain"}
        << "PUT\n\ntext/plain\n\nx-amz-date:" + date + "\n/kx-logs/e" << QByteArray("data");
    QTest::newRow("x-amz headers in their order")
        << QByteArray("kx-logs/f")
        << plain + QList<QByteArray>{"X-Amz-Meta-B: two", "x-amz-acl: private"}
        << "PUT\n\ntext/plain\n" + date + "\nx-amz-acl:private\nx-amz-meta-b:two\n/kx-logs/f"
        << QByteArray("data");
    for (const int offset : {-14 * 60, 14 * 60}) {
        const QByteArray other = dateAt(offset);
        QTest::newRow(QByteArray::number(offset / 60) + " minutes off")
            << QByteArray("kx-logs/g")
            << QList<QByteArray>{"Date: " + other, "Content-Type: text/plain"}
            << "PUT\n\ntext/plain\n" + other + "\n/kx-logs/g" << QByteArray("data");
    }
}

void tst_Signature::rightSignature()
{
    QFETCH(QByteArray, path);
    QFETCH(QList<QByteArray>, headers);
    QFETCH(QByteArray, stringToSign);
    QFETCH(QByteArray, body);
    const CurlResult result = put(path, headers << authorization(stringToSign), body);
    QVERIFY2(result.status == 200, result.body.constData());
    QCOMPARE(curl({simulator.url() + path}).body, body);
}

void tst_Signature::wrongRequest_data()
{
    QTest::addColumn<QList<QByteArray>>("headers");
    QTest::addColumn<QByteArray>("code");

    const auto signedAt = [](const QByteArray &date, const QByteArray &accessKey = ACCESS_KEY,
                             const QByteArray &secret = SECRET_KEY) {
        return QList<QByteArray>{
            "Date: " + date, "Content-Type: text/plain",
            authorization("PUT\n\ntext/plain\n" + date + "\n/kx-logs/x", accessKey, secret)};
    };
    QTest::newRow("wrong secret") << signedAt(dateAt(0), ACCESS_KEY, "wrong")
                                  << QByteArray("SignatureDoesNotMatch");
    QTest::newRow("signed header changed")
        << signedAt(dateAt(0)) + QList<QByteArray>{"x-amz-acl: private"}
        << QByteArray("SignatureDoesNotMatch");
    QTest::newRow("unknown key") << signedAt(dateAt(0), "SOMEBODY")
                                 << QByteArray("InvalidAccessKeyId");
    QTest::newRow("too old") << signedAt(dateAt(-16 * 60)) << QByteArray("RequestTimeTooSkewed");
    QTest::newRow("too early") << signedAt(dateAt(16 * 60)) << QByteArray("RequestTimeTooSkewed");
    QTest::newRow("no date") << QList<QByteArray>{authorization("PUT\n\n\n\n/kx-logs/x")}
                             << QByteArray("AccessDenied");
    QTest::newRow("a date that is none") << signedAt("yesterday") << QByteArray("AccessDenied");
    QTest::newRow("no authorization")
        << QList<QByteArray>{"Date: " + dateAt(0)} << QByteArray("AccessDenied");
    QTest::newRow("another scheme")
        << QList<QByteArray>{"Date: " + dateAt(0), "Authorization: Basic eDp5"}
        << QByteArray("AccessDenied");
}

void tst_Signature::wrongRequest()
{
    QFETCH(QList<QByteArray>, headers);
    QFETCH(QByteArray, code);
    const CurlResult result = put("kx-logs/x", headers);
    QCOMPARE(result.status, 403);
    QCOMPARE(codeOf(result), code);
    QCOMPARE(result.header("Content-Type"), QByteArray("application/xml"));
    QCOMPARE(curl({simulator.url() + "kx-logs/x"}).status, 404);
}

void tst_Signature::wrongSignatureTellsWhatToSign()
{
    const QByteArray date = dateAt(0);
    const CurlResult result =
        put("kx-logs/x",
            {"Date: " + date, "Content-Type: a/b", "Authorization: AWS " + ACCESS_KEY + ":wrong"});
    QVERIFY(
        result.body.contains("<StringToSign>PUT\n\na/b\n" + date + "\n/kx-logs/x</StringToSign>"));
}

void tst_Signature::largeBodyWaitsForNothing()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    QCOMPARE(file.write(QByteArray(5 * 1024 * 1024, 'x')), qint64(5 * 1024 * 1024));
    QVERIFY(file.flush());
    const QByteArray date = dateAt(0);
    QElapsedTimer timer;
    timer.start();
    // curl asks "Expect: 100-continue" and would wait a second in vain.
    const CurlResult result =
        curl({"-X", "PUT", "-H", "Expect: 100-continue", "-H", "Date: " + date, "-H",
              "Content-Type: text/plain", "-H",
              authorization("PUT\n\ntext/plain\n" + date + "\n/kx-logs/big"), "--data-binary",
              "@" + file.fileName().toLocal8Bit(), simulator.url() + "kx-logs/big"});
    QCOMPARE(result.status, 200);
    QVERIFY2(timer.elapsed() < 900, QByteArray::number(timer.elapsed()).constData());
    QCOMPARE(curl({"-I", simulator.url() + "kx-logs/big"}).header("Content-Length"),
             QByteArray("5242880"));
}

QTEST_GUILESS_MAIN(tst_Signature)
#include "tst_signature.moc"
