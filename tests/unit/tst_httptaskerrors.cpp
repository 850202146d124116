#include "handlemanager.h"
#include "httptask.h"

#include <QTimer>
#include <QtTest>

namespace
{

/// A reply that fails as it is told, without a network.
class FailingReply : public QNetworkReply
{
public:
    FailingReply(const QList<int> &codes, const QVariant &status, QObject *owner)
        : QNetworkReply(owner), errorCodes(codes)
    {
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, status);
        if (status.isValid())
            setAttribute(QNetworkRequest::HttpReasonPhraseAttribute, QStringLiteral("Reason"));
        open(QIODevice::ReadOnly);
        QTimer::singleShot(0, this, &FailingReply::fail);
    }

    void abort() override { }

protected:
    qint64 readData(char *, qint64) override { return -1; }

private:
    void fail()
    {
        for (const int code : errorCodes) {
            const auto error = static_cast<NetworkError>(code);
            setError(error, QStringLiteral("message %1").arg(code));
            Q_EMIT errorOccurred(error);
        }
        setFinished(true);
        Q_EMIT finished();
    }

    const QList<int> errorCodes;
};

class FailingTask : public HttpTask
{
public:
    using HttpTask::HttpTask;

    bool start() override { return startGetRequest(); }

    QList<int> codes;
    QVariant status; ///< of the answer; invalid: there was none

protected:
    QNetworkReply *getFunc() override { return new FailingReply(codes, status, this); }
};

} // namespace

/// How Qt's code for a failed exchange becomes an error.
class tst_HttpTaskErrors : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void codeWithoutAnAnswer_data();
    void codeWithoutAnAnswer();
    void codeOfAnAnswer_data();
    void codeOfAnAnswer();
    void laterErrorReplacesAnEarlierOne();

private:
    QString errorOf(const QList<int> &codes, const QVariant &status = QVariant());

    void *handle = nullptr;
};

void tst_HttpTaskErrors::init()
{
    handle = HandleManager::getInstance()->createHandle();
}

void tst_HttpTaskErrors::cleanup()
{
    HandleManager::getInstance()->disposeHandle(handle);
}

/// "number|text|detail" of an exchange that fails with these codes.
QString tst_HttpTaskErrors::errorOf(const QList<int> &codes, const QVariant &status)
{
    FailingTask task(handle);
    task.codes = codes;
    task.status = status;
    if (task.start())
        return QStringLiteral("succeeded");
    const HandleManager *handles = HandleManager::getInstance();
    return QStringList{handles->getParameter(handle, clouddefs::PKEY_ERROR_NO),
                       handles->getParameter(handle, clouddefs::PKEY_ERROR_TEXT),
                       handles->getParameter(handle, clouddefs::PKEY_ERROR_DETAIL)}
        .join(QLatin1Char('|'));
}

void tst_HttpTaskErrors::codeWithoutAnAnswer_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("taken");
    QTest::addColumn<QString>("error");
    const auto row = [](int code, int taken, const char *error) {
        QTest::newRow(QByteArray::number(code).constData())
            << code << taken << QString::fromLatin1(error);
    };
    const char *const connection = "301|network connection error.";
    const char *const proxy = "302|network proxy error.";
    const char *const content = "303|network content error.( )";
    const char *const protocol = "304|network protocol error";
    const char *const other = "300|network error.";
    for (const int code : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 99})
        row(code, code, connection);
    for (const int code : {101, 102, 103, 104, 105, 199})
        row(code, code, proxy);
    for (const int code : {201, 202, 203, 204, 205, 299})
        row(code, code, content);
    for (const int code : {301, 302, 399})
        row(code, code, protocol);
    row(400, 400, other);
    for (const int code : {206, 207, 401, 402, 403, 499})
        row(code, 299, content);
    row(500, 500, other);
}

void tst_HttpTaskErrors::codeWithoutAnAnswer()
{
    QFETCH(int, code);
    QFETCH(int, taken);
    QFETCH(QString, error);
    const QString text = error.mid(4);
    QCOMPARE(errorOf({code}),
             QStringLiteral("%1|%2 (QNetworkReply: %3 message %4)")
                 .arg(error, text, QString::number(taken), QString::number(code)));
}

void tst_HttpTaskErrors::codeOfAnAnswer_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("begin");
    const auto row = [](const char *name, int code, int status, const char *begin) {
        QTest::newRow(name) << code << status << QString::fromLatin1(begin);
    };
    row("not found", 203, 404,
        "303|network content error.(404 Reason)|"
        "network content error.(404 Reason) (QNetworkReply: 203 message 203)");
    row("forbidden", 201, 403,
        "303|network content error.(403 Reason)|"
        "network content error.(403 Reason) (QNetworkReply: 202 message 201)");
    row("server error", 403, 503,
        "303|network content error.(503 Reason)|"
        "network content error.(503 Reason) (QNetworkReply: 299 message 403)");
    row("bad request", 302, 400,
        "303|network content error.(400 Reason)|"
        "network content error.(400 Reason) (QNetworkReply: 299 message 302)");
    row("invalid operation after an answer below 400", 302, 399,
        "304|network protocol error|network protocol error (QNetworkReply: 302 message 302)");
    row("other protocol error of a 404", 399, 404,
        "304|network protocol error|network protocol error (QNetworkReply: 399 message 399)");
    row("proxy wants credentials", 105, 407,
        "302|network proxy error.|network proxy error. (QNetworkReply: 105 message 105)");
    row("404 that breaks off", 2, 404,
        "301|network connection error.|network connection error. (QNetworkReply: 2 message 2)");
}

void tst_HttpTaskErrors::codeOfAnAnswer()
{
    QFETCH(int, code);
    QFETCH(int, status);
    QFETCH(QString, begin);
    QCOMPARE(errorOf({code}, status), begin);
}

void tst_HttpTaskErrors::laterErrorReplacesAnEarlierOne()
{
    QCOMPARE(errorOf({203, 2}, 404),
             QStringLiteral("301|network connection error.|"
                            "network connection error. (QNetworkReply: 2 message 2)"));
}

QTEST_GUILESS_MAIN(tst_HttpTaskErrors)
#include "tst_httptaskerrors.moc"
