#include "simulator.h"

#include <QTcpSocket>
#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

using namespace korrintest;

namespace
{

const int CLIENTS = 200;
const int RECORDS_EACH = 20;
const int TIMEOUT_MS = 30000;

/// Posts a log record that names client and number. @return true when it was answered
bool postRecord(QTcpSocket &socket, int client, int number)
{
    const QByteArray body = "is=cloudlog&lang=en&pn=P" + QByteArray::number(client)
        + "&fn=" + QByteArray::number(number) + "&en=0";
    socket.write("POST /su/upload HTTP/1.1\r\nHost: localhost\r\nContent-Length: "
                 + QByteArray::number(body.size()) + "\r\n\r\n" + body);
    QByteArray answer;
    while (!answer.endsWith("</response>")) {
        if (!socket.waitForReadyRead(TIMEOUT_MS))
            return false;
        answer += socket.readAll();
    }
    return answer.startsWith("HTTP/1.1 200 ");
}

} // namespace

/// Many clients at once lose nothing.
class tst_Load : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyRecordOfManyClientsIsKept();
};

void tst_Load::everyRecordOfManyClientsIsKept()
{
    Simulator simulator;
    QVERIFY(simulator.start());
    const quint16 port = quint16(QUrl(QString::fromLatin1(simulator.url())).port());

    std::atomic<int> connected{0};
    std::atomic<int> answered{0};
    std::vector<std::thread> clients;
    for (int client = 0; client < CLIENTS; ++client) {
        clients.emplace_back([&, client] {
            QTcpSocket socket;
            socket.connectToHost(QStringLiteral("127.0.0.1"), port);
            if (!socket.waitForConnected(TIMEOUT_MS))
                return;
            ++connected;
            for (int number = 0; number < RECORDS_EACH; ++number)
                answered += postRecord(socket, client, number);
        });
    }
    for (std::thread &client : clients)
        client.join();
    QCOMPARE(connected.load(), CLIENTS);
    QCOMPARE(answered.load(), CLIENTS * RECORDS_EACH);

    QSet<QString> seen;
    const QJsonArray records =
        simulator.api("cloudlog?limit=10000").value(QLatin1String("records")).toArray();
    for (const QJsonValue &value : records) {
        const QJsonObject record = value.toObject();
        seen << record.value(QLatin1String("product")).toString() + QLatin1Char(' ')
                + record.value(QLatin1String("function")).toString();
    }
    QCOMPARE(records.size(), CLIENTS * RECORDS_EACH);
    QCOMPARE(seen.size(), CLIENTS * RECORDS_EACH);
    QCOMPARE(simulator.api("info").value(QLatin1String("exchanges")).toInt(),
             CLIENTS * RECORDS_EACH);
    QCOMPARE(simulator.api("devices").value(QLatin1String("devices")).toArray().size(), CLIENTS);
}

QTEST_GUILESS_MAIN(tst_Load)
#include "tst_load.moc"
