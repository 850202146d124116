#include "faultyhost.h"
#include "scriptedserver.h"
#include "scripthost.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>

using namespace korrintest;

namespace
{

const QByteArray BODY(10000, 'b');

} // namespace

/// korrinSendFile and korrinRecvFile on a disk that fails.
class tst_SickDisk : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void receiving_data();
    void receiving();
    void sending_data();
    void sending();

private:
    QByteArray path(const char *name) const
    {
        return directory->filePath(QLatin1String(name)).toLocal8Bit();
    }

    QScopedPointer<QTemporaryDir> directory;
};

void tst_SickDisk::init()
{
    directory.reset(new QTemporaryDir);
}

void tst_SickDisk::receiving_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::addColumn<QByteArray>("error"); // "0": the file is whole
    const auto number = [](int error) { return QByteArray::number(error); };
    for (const int error : {EIO, ENOSPC, EACCES}) {
        QTest::newRow(("open fails with " + number(error)).constData())
            << "open,1," + number(error) << QByteArray("402|file open failed.|filePath:{PATH}");
        for (const char *often : {"", ",forever"}) {
            QTest::newRow(("write fails with " + number(error) + often).constData())
                << "write,1," + number(error) + often
                << QByteArray("403|file write failed.|(file size):-1/10000");
        }
    }
    QTest::newRow("open is interrupted") << "open,1," + number(EINTR) << QByteArray("0");
    QTest::newRow("write is interrupted") << "write,1," + number(EINTR) << QByteArray("0");
    QTest::newRow("short write") << QByteArray("write,1,short") << QByteArray("0");
    QTest::newRow("short write, then a full disk")
        << QByteArray("write,1,short,forever") << QByteArray("403|file write failed.|");
}

void tst_SickDisk::receiving()
{
    QFETCH(QByteArray, fault);
    QFETCH(QByteArray, error);
    ScriptedServer server([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", "application/zip", BODY));
    });
    ScriptHost host(directory->path(), faultEnvironment(directory->path(), fault));
    host.call("open");
    const QByteArray handle = host.create();
    host.set(handle, "server_url", server.url());
    host.set(handle, "mode", "remote_access");
    host.set(handle, "product_no", "PN");
    const int result = host.recvFile(handle, path("received"));
    QCOMPARE(result, error == "0" ? 1 : 0);
    QFile file(QString::fromLocal8Bit(path("received")));
    QCOMPARE(file.exists(), error == "0");
    if (error == "0") {
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY(file.readAll() == BODY);
        return;
    }
    error.replace("{PATH}", path("received"));
    const QByteArray seen = host.get(handle, "error_no") + '|' + host.get(handle, "error_text")
        + '|' + host.get(handle, "error_detail");
    QVERIFY2(seen.startsWith(error), seen.constData());
    // The next call works.
    QCOMPARE(host.check(handle), 0);
    QCOMPARE(host.get(handle, "error_no"), QByteArray("201"));
}

void tst_SickDisk::sending_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::addColumn<QByteArray>("error");
    for (const int error : {EIO, EACCES, EMFILE}) {
        QTest::newRow(("open fails with " + QByteArray::number(error)).constData())
            << "open,1," + QByteArray::number(error) << QByteArray("402");
    }
    // Errors of reading are not told: what could be read is sent.
    QTest::newRow("read fails once") << "read,1," + QByteArray::number(EIO) << QByteArray("0");
    QTest::newRow("read fails for ever")
        << "read,1," + QByteArray::number(EIO) + ",forever" << QByteArray("0");
    QTest::newRow("read is interrupted")
        << "read,1," + QByteArray::number(EINTR) << QByteArray("0");
}

void tst_SickDisk::sending()
{
    QFETCH(QByteArray, fault);
    QFETCH(QByteArray, error);
    QFile file(QString::fromLocal8Bit(path("object")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(BODY), qint64(BODY.size()));
    file.close();
    ScriptedServer server([](Connection &connection, const HttpRequest &) {
        connection.send(answer(200, "OK", QByteArray(), ""));
    });
    ScriptHost host(directory->path(), faultEnvironment(directory->path(), fault));
    host.call("open");
    const QByteArray handle = host.create();
    host.set(handle, "server_url", server.url());
    host.set(handle, "mode", "s3_upload");
    host.set(handle, "product_no", "PN");
    QCOMPARE(host.sendFile(handle, path("object")), error == "0" ? 1 : 0);
    QCOMPARE(host.get(handle, "error_no"), error);
    QCOMPARE(server.requestCount(), error == "0" ? 1 : 0);
    if (fault == "read,1," + QByteArray::number(EINTR))
        QVERIFY(server.requests().at(0).body == BODY);
}

QTEST_GUILESS_MAIN(tst_SickDisk)
#include "tst_sickdisk.moc"
