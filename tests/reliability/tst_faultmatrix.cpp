#include "certificateauthority.h"
#include "documentblocks.h"
#include "korrinhost.h"
#include "scriptedproxy.h"
#include "scriptedserver.h"
#include "simulator.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

using namespace korrintest;

namespace
{

const QList<QByteArray> CALLS = {"check", "send", "sendFile", "recv", "recvFile"};
const QList<QByteArray> MODES = {"update", "remote_access", "submit_info", "s3_upload"};
const QByteArray OLD_CONTENT = "what was there before";

/// What an answer should be.
QByteArray goodAnswer(const HttpRequest &request)
{
    if (request.path().endsWith("/download"))
        return answer(200, "OK", "application/zip", QByteArray(1000, 'z'));
    const QByteArray items = request.method == "GET" ? request.query() : request.body;
    return xmlAnswer(formValue(items, "is"));
}

QByteArray withBody(const QByteArray &good, const QByteArray &body)
{
    return good.left(good.indexOf("Content-Length"))
        + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

QByteArray repeated(const QByteArray &text, int count)
{
    return text.repeated(count);
}

int bodyAt(const QByteArray &good)
{
    return static_cast<int>(good.indexOf("\r\n\r\n")) + 4;
}

using Fault = std::function<void(Connection &, const HttpRequest &, const QByteArray &good)>;

Fault sends(const std::function<QByteArray(const QByteArray &good)> &change)
{
    return [change](Connection &connection, const HttpRequest &, const QByteArray &good) {
        connection.send(change(good));
    };
}

Fault sendsInstead(const QByteArray &bytes)
{
    return sends([bytes](const QByteArray &) { return bytes; });
}

/// What a proxy does.
struct ProxyFault {
    QByteArray credentials; ///< that the handle has, "user:password"
    int challenges = 0;     ///< more than the right credentials ask for; negative: for ever
    int refusal = 0;        ///< the status that it answers with; 0: what the server answers
    bool isThere = true;
};

/// For a simulator with the certificate "server".
QStringList tlsArguments(const QTemporaryDir &files)
{
    return {QStringLiteral("--tls-cert"), files.filePath(QStringLiteral("server.pem")),
            QStringLiteral("--tls-key"), files.filePath(QStringLiteral("server.key"))};
}

/// Uploads to an object's path; the other calls replace it.
Parameters parametersFor(const Simulator &cloud)
{
    return {{"server_url", cloud.url() + "kx-logs/a"},
            {"product_no", "KX-200"},
            {"download_file_path", "kx-200-1.4.bin"},
            {"aws_access_key", "KORRINSIMACCESSKEY"},
            {"aws_secret_access_key", "korrin/sim+secret"}};
}

/// What a host sees of a call.
struct Outcome {
    QByteArray call;
    QByteArray mode;
    QByteArray text; ///< "returns | number | text | detail"
};

QByteArray cell(const QByteArray &text, const QString &directory)
{
    QString line = QString::fromUtf8(text).simplified();
    line.replace(directory, QStringLiteral("/tmp"));
    line.replace(QRegularExpression(QStringLiteral("127\\.0\\.0\\.1:\\d+")),
                 QStringLiteral("127.0.0.1:8080"));
    line.replace(QLatin1Char('<'), QStringLiteral("&lt;"));
    line.replace(QLatin1Char('|'), QStringLiteral("\\|"));
    return line.toUtf8();
}

/// The local file of a call.
QString pathOf(const QString &directory, const QByteArray &call, const QByteArray &mode)
{
    return directory + QLatin1Char('/') + QString::fromLatin1(call + '-' + mode);
}

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
}

/// What the calls that send are given, and what their handles have sent before, if anything.
struct Sent {
    QByteArray data = "data";
    QByteArray before;
};

Outcome outcomeOf(const QByteArray &call, const QByteArray &mode, const Parameters &parameters,
                  const QString &directory, const Sent &sent)
{
    Handle handle(baseParameters(QByteArray(), "s3_upload"));
    if (!sent.before.isEmpty() && call.startsWith("send"))
        handle.sendData(sent.before); // to no server, but the handle keeps it
    handle.set("mode", mode);
    for (const auto &parameter : parameters)
        handle.set(parameter.first, parameter.second);
    handle.set("send_data_type", "update_log");
    const QString path = pathOf(directory, call, mode);
    const QByteArray localPath = path.toLocal8Bit();
    const int result = call == "check" ? handle.checkEnable()
        : call == "send"               ? handle.sendData(sent.data)
        : call == "sendFile"           ? handle.sendFile(localPath)
        : call == "recv"               ? handle.recvData()
                                       : handle.recvFile(localPath);
    return {call, mode,
            QByteArray::number(result) + " | " + handle.errorNo() + " | "
                + cell(handle.errorText(), directory) + " | "
                + cell(handle.errorDetail(), directory)};
}

using Outcomes = std::vector<Outcome>;

/// "check, send in update, remote_access; recv in update": calls with the same modes together.
QByteArray described(const Outcomes &outcomes)
{
    if (outcomes.size() == static_cast<size_t>(CALLS.size() * MODES.size()))
        return "all";
    QMap<QByteArray, QList<QByteArray>> callsByModes;
    for (const QByteArray &call : CALLS) {
        QList<QByteArray> modes;
        for (const Outcome &outcome : outcomes) {
            if (outcome.call == call)
                modes << outcome.mode;
        }
        if (!modes.isEmpty()) {
            const QByteArray key = modes.size() == MODES.size() ? "all modes" : modes.join(", ");
            callsByModes[key] << call;
        }
    }
    QList<QByteArray> parts;
    for (auto it = callsByModes.begin(); it != callsByModes.end(); ++it)
        parts << it.value().join(", ") + " in " + it.key();
    return parts.join("; ");
}

/// Rows of the table, one for all calls that came out the same.
QByteArray rowsOf(const QByteArray &fault, const Outcomes &outcomes)
{
    QList<QByteArray> texts;
    QHash<QByteArray, Outcomes> byText;
    for (const Outcome &outcome : outcomes) {
        if (!byText.contains(outcome.text))
            texts << outcome.text;
        byText[outcome.text].push_back(outcome);
    }
    QByteArray rows;
    for (const QByteArray &text : texts)
        rows += "| " + fault + " | " + described(byText.value(text)) + " | " + text + " |\n";
    return rows;
}

bool hasBody(const HttpRequest &request)
{
    return request.header("Content-Length").toLongLong() > 0
        || request.hasHeader("Transfer-Encoding");
}

/// "400, 402, 404–406"
QByteArray ranges(const QList<int> &ascending)
{
    QList<QByteArray> parts;
    for (int from = 0, to = 0; from < ascending.size(); from = ++to) {
        while (to + 1 < ascending.size() && ascending[to + 1] == ascending[to] + 1)
            ++to;
        const QByteArray first = QByteArray::number(ascending[from]);
        parts << (from == to ? first : first + "–" + QByteArray::number(ascending[to]));
    }
    return parts.join(", ");
}

/// Puts *status* for the status and *URL* for what was asked for; nothing else differs between
/// exchanges that come out the same.
void generalize(Outcomes *outcomes, int status, const QList<HttpRequest> &requests)
{
    for (Outcome &outcome : *outcomes) {
        outcome.text.replace('(' + QByteArray::number(status) + " Reason)", "(*status* Reason)");
        for (const HttpRequest &request : requests)
            outcome.text.replace("http://127.0.0.1:8080" + request.target + " - ", "*URL* - ");
    }
}

} // namespace

/// Each fault of the network with each call in each mode; the table is docs/fault-matrix.md.
class tst_FaultMatrix : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answers_data();
    void answers();
    void resetWhileSending();
    void statuses();
    void noServer();
    void proxies_data();
    void proxies();
    void tlsToAServerThatSpeaksNone();
    void tls_data();
    void tls();
    void everyPartIsCompared();

private:
    /// Makes all calls in all modes at once. @param parameters  is asked for those of each
    Outcomes outcomesFor(const std::function<Parameters()> &parameters, const Sent &sent = Sent());
    QByteArray rowsFor(const QByteArray &fault, const Parameters &parameters);
    void writeFiles(const Sent &sent);
    /// A received file has replaced the old one if its call says so, and no other file is left.
    void checkFiles(const Outcomes &outcomes);
    void compare(const QByteArray &fault, const QByteArray &rows);

    QTemporaryDir directory;
    DocumentBlocks document{QStringLiteral("fault-matrix.md")};
    QList<QByteArray> compared;
    const OpenLibrary library;
};

Q_DECLARE_METATYPE(Fault)
Q_DECLARE_METATYPE(ProxyFault)

void tst_FaultMatrix::initTestCase()
{
    QVERIFY(directory.isValid());
}

void tst_FaultMatrix::writeFiles(const Sent &sent)
{
    for (const QByteArray &mode : MODES) {
        writeFile(pathOf(directory.path(), "sendFile", mode), sent.data);
        writeFile(pathOf(directory.path(), "recvFile", mode), OLD_CONTENT);
    }
}

void tst_FaultMatrix::checkFiles(const Outcomes &outcomes)
{
    for (const Outcome &outcome : outcomes) {
        if (outcome.call != "recvFile")
            continue;
        QFile file(pathOf(directory.path(), outcome.call, outcome.mode));
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(file.fileName()));
        const QByteArray content = file.readAll();
        if (outcome.text.startsWith("1 "))
            QVERIFY(outcome.text.endsWith("(data size):" + QByteArray::number(content.size())));
        else
            QCOMPARE(content, OLD_CONTENT);
    }
    const QDir files(directory.path(), QString(), QDir::Name,
                     QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    QCOMPARE(int(files.count()), int(2 * MODES.size()));
}

Outcomes tst_FaultMatrix::outcomesFor(const std::function<Parameters()> &parameters,
                                      const Sent &sent)
{
    writeFiles(sent);
    Outcomes outcomes(static_cast<size_t>(CALLS.size() * MODES.size()));
    std::vector<std::thread> threads;
    size_t index = 0;
    for (const QByteArray &call : CALLS) {
        for (const QByteArray &mode : MODES) {
            Outcome &outcome = outcomes[index++];
            threads.emplace_back([&outcome, call, mode, own = parameters(), &sent, this] {
                outcome = outcomeOf(call, mode, own, directory.path(), sent);
            });
        }
    }
    for (std::thread &thread : threads)
        thread.join();
    checkFiles(outcomes);
    return outcomes;
}

QByteArray tst_FaultMatrix::rowsFor(const QByteArray &fault, const Parameters &parameters)
{
    return rowsOf(fault, outcomesFor([&parameters] { return parameters; }));
}

/// Where Qt 5 and Qt 6 differ, the document has a part for each.
void tst_FaultMatrix::compare(const QByteArray &fault, const QByteArray &rows)
{
    const QByteArray ownPart = fault + ", Qt " + qVersion()[0];
    const QByteArray part = document.names().contains(ownPart) ? ownPart : fault;
    const QByteArray head = "| Fault | Calls | Returns | Number | Text | Detail |\n"
                            "|---|---|---|---|---|---|\n";
    compared << part;
    const QByteArray difference = document.compare(part, head + rows);
    QVERIFY2(difference.isEmpty(), difference.constData());
}

void tst_FaultMatrix::answers_data()
{
    QTest::addColumn<Fault>("fault");

    QTest::newRow("none") << sends([](const QByteArray &good) { return good; });
    QTest::newRow("closed before the answer")
        << Fault([](Connection &, const HttpRequest &, const QByteArray &) {});
    QTest::newRow("closed within the status line") << sendsInstead("HTTP/1.1 20");
    QTest::newRow("closed within the headers") << sendsInstead("HTTP/1.1 200 OK\r\nContent-Ty");
    QTest::newRow("closed after the headers")
        << sends([](const QByteArray &good) { return good.left(bodyAt(good)); });
    QTest::newRow("body cut short")
        << sends([](const QByteArray &good) { return good.left(good.size() - 10); });
    QTest::newRow("reset before the answer")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &) {
               connection.reset();
           });
    QTest::newRow("reset within the body")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &good) {
               connection.send(good.left(bodyAt(good) + 3));
               connection.reset();
           });
    QTest::newRow("silence before the answer")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &) {
               connection.stall();
           });
    QTest::newRow("silence within the headers")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &) {
               connection.send("HTTP/1.1 200 OK\r\nContent");
               connection.stall();
           });
    QTest::newRow("silence within the body")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &good) {
               connection.send(good.left(bodyAt(good) + 3));
               connection.stall();
           });
    QTest::newRow("a few bytes at a time")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &good) {
               connection.sendInPieces(good, 50, 20);
           });
    QTest::newRow("an answer 300 ms late")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &good) {
               if (!connection.waitForPeerClose(300))
                   connection.send(good);
           });
    QTest::newRow("malformed status line") << sendsInstead("HELLO WORLD\r\n\r\n");
    QTest::newRow("malformed header") << sends([](const QByteArray &good) {
        return QByteArray(good).replace("Content-Type", "no colon here\r\nContent-Type");
    });
    QTest::newRow("negative length")
        << sendsInstead("HTTP/1.1 200 OK\r\nContent-Length: -5\r\nConnection: close\r\n\r\nabc");
    QTest::newRow("malformed chunk")
        << sendsInstead("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\nabc\r\n");
    QTest::newRow("malformed gzip")
        << sendsInstead("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 20\r\n\r\n"
                        "this is not gzip....");
    QTest::newRow("10,000 headers") << sends([](const QByteArray &good) {
        return QByteArray(good).replace("Content-Type",
                                        repeated("X-Filler: x\r\n", 10000) + "Content-Type");
    });
    QTest::newRow("headers without end")
        << Fault([](Connection &connection, const HttpRequest &, const QByteArray &) {
               connection.send("HTTP/1.1 200 OK\r\n");
               while (connection.send(repeated("X-Filler: x\r\n", 100))
                      && !connection.waitForPeerClose(20)) { }
           });
    QTest::newRow("another kind of answer") << sendsInstead(xmlAnswer("other"));
    QTest::newRow("a refusal") << Fault(
        [](Connection &connection, const HttpRequest &request, const QByteArray &) {
            const QByteArray items = request.method == "GET" ? request.query() : request.body;
            connection.send(xmlAnswer(formValue(items, "is"), "0", "77", "Not today."));
        });
    QTest::newRow("white space between the elements") << sends([](const QByteArray &good) {
        return withBody(good, good.mid(bodyAt(good)).replace("><", ">\n  <"));
    });
    QTest::newRow("no XML") << sendsInstead(answer(200, "OK", "text/html", "<p>Please log in"));
    QTest::newRow("an empty answer") << sendsInstead(answer(200, "OK", "text/xml", ""));
    QTest::newRow("nested entities")
        << sendsInstead(answer(200, "OK", "text/xml",
                               "<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY b \"bbbbbbbbbb\">"
                               "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">"
                               "<!ENTITY d \"&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;\">"
                               "<!ENTITY e \"&d;&d;&d;&d;&d;&d;&d;&d;&d;&d;\">"
                               "<!ENTITY f \"&e;&e;&e;&e;&e;&e;&e;&e;&e;&e;\">"
                               "<!ENTITY g \"&f;&f;&f;&f;&f;&f;&f;&f;&f;&f;\">]>"
                               "<response><is>&g;&g;&g;</is></response>"));
    QTest::newRow("an external entity")
        << sendsInstead(answer(200, "OK", "text/xml",
                               "<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY b SYSTEM "
                               "\"file:///etc/passwd\">]><response><is>&b;</is></response>"));
    QTest::newRow("deeply nested elements")
        << sendsInstead(answer(200, "OK", "text/xml", repeated("<a>", 20000)));
    QTest::newRow("an answer of 5 MB") << sends([](const QByteArray &good) {
        const QByteArray body = good.mid(bodyAt(good));
        const int at = static_cast<int>(body.indexOf("</message>"));
        return withBody(good,
                        at < 0 ? QByteArray(5000000, 'z')
                               : body.left(at) + "</message><more>" + QByteArray(5000000, 'x')
                                + "</more>" + body.mid(at + 10));
    });
    for (const int status : {301, 302, 303, 307, 308}) {
        QTest::newRow(("redirect " + QByteArray::number(status)).constData()) << sendsInstead(
            answer(status, "Moved", "text/html", "elsewhere", {"Location: http://127.0.0.1:9/"}));
    }
}

void tst_FaultMatrix::answers()
{
    QFETCH(Fault, fault);
    ScriptedServer server([fault](Connection &connection, const HttpRequest &request) {
        if (formValue(request.body, "is") == "cloudlog")
            connection.send(xmlAnswer("cloudlog"));
        else
            fault(connection, request, goodAnswer(request));
    });
    // Where the call is to time out it does so soon; elsewhere a busy machine must not make it.
    const QByteArray name = QTest::currentDataTag();
    const bool timesOut = name.startsWith("silence") || name.endsWith("without end");
    compare(name,
            rowsFor(name, {{"server_url", server.url()}, {"recv_timeout", timesOut ? "1" : "60"}}));
}

/// With more to send than the kernel takes on the server's behalf. In modes "remote_access" and
/// "submit_info" that is what the handle has sent before.
void tst_FaultMatrix::resetWhileSending()
{
    const QByteArray data(8 * 1024 * 1024, 'd');
    std::vector<std::unique_ptr<ScriptedServer>> servers; // one each, to see what each call sends
    Outcomes outcomes = outcomesFor(
        [&servers] {
            servers.push_back(std::make_unique<ScriptedServer>(
                [](Connection &connection, const HttpRequest &) { connection.reset(); }));
            servers.back()->setReadsBody(false);
            servers.back()->setReceiveBufferBytes(4096);
            return Parameters{{"server_url", servers.back()->url()}, {"recv_timeout", "60"}};
        },
        {data, data});
    Outcomes sending;
    Outcomes asking;
    for (size_t i = 0; i < outcomes.size(); ++i) {
        // Which of the two it is depends on whether Qt was about to read or to write.
        outcomes[i].text.replace("99 Unknown error", "2 Connection closed");
        const QList<HttpRequest> requests = servers[i]->requests();
        QVERIFY(!requests.isEmpty());
        (hasBody(requests.first()) ? sending : asking).push_back(outcomes[i]);
    }
    const QByteArray fault = "reset while sending";
    compare(fault,
            rowsOf(fault, sending) + rowsOf(fault + " (no body: before the answer)", asking));
}

/// Those that come out the same share their rows.
void tst_FaultMatrix::statuses()
{
    struct Group {
        QList<int> statuses;
        Outcomes outcomes;
    };
    QList<QByteArray> keys;
    QHash<QByteArray, Group> groups;
    for (int status = 400; status < 600; ++status) {
        ScriptedServer server([status](Connection &connection, const HttpRequest &request) {
            connection.send(formValue(request.body, "is") == "cloudlog"
                                ? xmlAnswer("cloudlog")
                                : answer(status, "Reason", "text/plain", "no"));
        });
        Outcomes outcomes = outcomesFor([&server] {
            return Parameters{{"server_url", server.url()}, {"recv_timeout", "60"}};
        });
        generalize(&outcomes, status, server.requests());
        const QByteArray key = rowsOf("", outcomes);
        if (!groups.contains(key))
            keys << key;
        groups[key].statuses << status;
        groups[key].outcomes = outcomes;
    }
    QByteArray rows;
    for (const QByteArray &key : keys)
        rows += rowsOf("status " + ranges(groups[key].statuses), groups[key].outcomes);
    compare("statuses", rows);
}

void tst_FaultMatrix::noServer()
{
    const RefusingPort refusing;
    QByteArray rows;
    rows += rowsFor("connection refused", {{"server_url", "http://" + refusing.authority() + '/'}});
    rows += rowsFor("unknown host", {{"server_url", "http://nowhere.invalid/"}});
    rows += rowsFor("unknown scheme", {{"server_url", "gopher://127.0.0.1/"}});
    rows += rowsFor("no URL", {{"server_url", ""}});
    compare("no server", rows);
}

void tst_FaultMatrix::proxies_data()
{
    QTest::addColumn<bool>("isTunnel");
    QTest::addColumn<ProxyFault>("fault");
    for (const bool isTunnel : {false, true}) {
        const auto add = [isTunnel](const char *name, const ProxyFault &fault) {
            QTest::addRow("%s%s", isTunnel ? "tunnel: " : "", name) << isTunnel << fault;
        };
        add("proxy without credentials", {});
        add("proxy refuses the connection", {{}, 0, 0, false});
        add("proxy answers 403", {{}, 0, 403, true});
        add("proxy answers 502", {{}, 0, 502, true});
        add("proxy asks for credentials that there are none of", {{}, -1, 0, true});
        add("proxy asks once", {"user:right", 1, 0, true});
        add("proxy asks twice", {"user:right", 2, 0, true});
        add("proxy asks for ever", {"user:right", -1, 0, true});
        add("proxy with wrong credentials", {"user:wrong", 0, 0, true});
    }
}

void tst_FaultMatrix::proxies()
{
    QFETCH(bool, isTunnel);
    QFETCH(ProxyFault, fault);
    const QTemporaryDir files;
    const CertificateAuthority authority(files.path(), QStringLiteral("trusted"));
    ScriptedServer server([](Connection &connection, const HttpRequest &request) {
        connection.send(goodAnswer(request));
    });
    Simulator tlsCloud;
    if (isTunnel) {
        QVERIFY(authority.issue(QStringLiteral("server"), QStringLiteral("IP:127.0.0.1"), 2));
        QVERIFY(tlsCloud.start(tlsArguments(files)));
    }
    const TrustedAlone trust(authority);
    const RefusingPort refusing;
    std::vector<std::unique_ptr<ScriptedProxy>> proxies; // one each: it counts its challenges
    const Outcomes outcomes = outcomesFor([&] {
        proxies.push_back(std::make_unique<ScriptedProxy>());
        ScriptedProxy &proxy = *proxies.back();
        if (!fault.credentials.isEmpty() || fault.challenges < 0)
            proxy.requireCredentials("user", "right");
        proxy.setChallenges(fault.challenges);
        proxy.setRefusal(fault.refusal);
        const QByteArray url =
            proxy.url(fault.credentials.split(':').value(0), fault.credentials.split(':').value(1));
        const Parameters target =
            isTunnel ? parametersFor(tlsCloud) : Parameters{{"server_url", server.url()}};
        return target
            + Parameters{{"http_proxy", fault.isThere ? url : "http://" + refusing.authority()},
                         {"recv_timeout", "60"}};
    });
    compare(QTest::currentDataTag(), rowsOf(QTest::currentDataTag(), outcomes));
}

void tst_FaultMatrix::tlsToAServerThatSpeaksNone()
{
    ScriptedServer plain;
    const QByteArray fault = "TLS to a server that speaks none";
    compare(fault,
            rowsFor(fault, {{"server_url", "https" + plain.url().mid(4)}, {"recv_timeout", "1"}}));
}

void tst_FaultMatrix::tls_data()
{
    QTest::addColumn<bool>("isOfTrusted");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("days");
    const QString ownName = QStringLiteral("IP:127.0.0.1");
    const QString otherName = QStringLiteral("DNS:elsewhere.invalid");
    QTest::newRow("trusted certificate") << true << ownName << 2;
    QTest::newRow("certificate of an unknown authority") << false << ownName << 2;
    QTest::newRow("certificate for another name") << true << otherName << 2;
    QTest::newRow("expired certificate") << true << ownName << -1;
}

void tst_FaultMatrix::tls()
{
    QFETCH(bool, isOfTrusted);
    QFETCH(QString, name);
    QFETCH(int, days);
    const QTemporaryDir files;
    const CertificateAuthority trusted(files.path(), QStringLiteral("trusted"));
    const CertificateAuthority unknown(files.path(), QStringLiteral("unknown"));
    QVERIFY((isOfTrusted ? trusted : unknown).issue(QStringLiteral("server"), name, days));
    Simulator cloud;
    QVERIFY(cloud.start(tlsArguments(files)));
    const TrustedAlone trust(trusted);
    compare(QTest::currentDataTag(),
            rowsFor(QTest::currentDataTag(),
                    parametersFor(cloud) + Parameters{{"recv_timeout", "60"}}));
}

void tst_FaultMatrix::everyPartIsCompared()
{
    QList<QByteArray> wanted;
    const QByteArray otherQt = qVersion()[0] == '5' ? ", Qt 6" : ", Qt 5";
    for (const QByteArray &name : document.names()) {
        if (!name.endsWith(otherQt))
            wanted << name;
    }
    QCOMPARE(compared, wanted);
}

QTEST_GUILESS_MAIN(tst_FaultMatrix)
#include "tst_faultmatrix.moc"
